#pragma once
// A plain row of the dialog's trees: the modules listed under a
// configuration. Made directly in a tree it starts with "File not found" in
// its second and third text slots; made under another row all slots start
// empty. Rows under a configuration carry the record they stand for.
#include <QString>
#include <QTreeWidgetItem>

#include "update/DlModule.h"

class CDlListViewItem : public QTreeWidgetItem {
public:
    explicit CDlListViewItem(QTreeWidget* tree);
    explicit CDlListViewItem(QTreeWidgetItem* parent);

    int marker = 1;
    QString textSlot1;
    QString textSlot2;
    QString textSlot3;
    dlModule module = emptyDlModule();
};
