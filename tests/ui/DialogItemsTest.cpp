// The tree rows and the question box.
#include <QTimer>
#include <QTreeWidget>
#include <gtest/gtest.h>

#include "ui/DlCheckListItem.h"
#include "ui/DlListViewItem.h"
#include "ui/DownloadMessInfo.h"

TEST(DialogItems, CheckRowsAndPlainRows)
{
    QTreeWidget tree;
    CDlCheckListItem box(nullptr, &tree, QStringLiteral("a.so"), CDlCheckListItem::CheckBox);
    EXPECT_TRUE(box.flags() & Qt::ItemIsUserCheckable);
    EXPECT_EQ(Qt::Unchecked, box.checkState(0));
    box.stateChange(true);  // no dialog to tell: nothing happens

    CDlCheckListItem plain(nullptr, &tree, QStringLiteral("b.so"), CDlCheckListItem::Plain);
    EXPECT_FALSE(plain.data(0, Qt::CheckStateRole).isValid());  // no check box is drawn

    CDlListViewItem inTree(&tree);
    CDlListViewItem under(static_cast<QTreeWidgetItem*>(&box));
    EXPECT_EQ(QStringLiteral("File not found|File not found"), inTree.textSlot2 + '|' + inTree.textSlot3);
    EXPECT_EQ(QStringLiteral("|"), under.textSlot2 + '|' + under.textSlot3);
    EXPECT_EQ(&box, under.parent());
}

// Its buttons are answered in the host's tests (DialogDriverTest); the
// window's own close control is a No.
TEST(DialogItems, QuestionBoxClosedByItsWindowIsANo)
{
    CDownloadMessInfo box(nullptr, QStringLiteral("Title"), QStringLiteral("Question?"));
    EXPECT_FALSE(box.windowIcon().isNull());
    QTimer::singleShot(0, &box, &QDialog::close);
    EXPECT_EQ(1, box.start());
}
