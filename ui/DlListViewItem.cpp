#include "ui/DlListViewItem.h"

CDlListViewItem::CDlListViewItem(QTreeWidget* tree)
    : QTreeWidgetItem(tree, 0)
    , textSlot2(QStringLiteral("File not found"))
    , textSlot3(QStringLiteral("File not found"))
{
}

CDlListViewItem::CDlListViewItem(QTreeWidgetItem* parent)
    : QTreeWidgetItem(parent, 0)
{
}
