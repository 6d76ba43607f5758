#include "ui/DlCheckListItem.h"

#include "ui/DownloadWidget.h"

CDlCheckListItem::CDlCheckListItem(CDownloadWidget* owner, QTreeWidget* tree, const QString& text,
                                   Type kind)
    : QTreeWidgetItem(tree, 0)
    , owner_(owner)
{
    setText(0, text);
    if (kind == CheckBox) {
        setFlags(flags() | Qt::ItemIsUserCheckable);
        setCheckState(0, Qt::Unchecked);
    }
}

void CDlCheckListItem::stateChange(bool)
{
    if (owner_)
        owner_->changeState();
}
