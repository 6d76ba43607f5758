// The tree rows and the question box.
#include <QTimer>
#include <QTreeWidget>
#include <gtest/gtest.h>

#include "ui/DlCheckListItem.h"
#include "ui/DownloadMessInfo.h"

// A module row can be ticked; a plain row draws no check box.
TEST(DialogItems, CheckRowsAndPlainRows)
{
    QTreeWidget tree;
    CDlCheckListItem box(nullptr, &tree, QStringLiteral("a.so"), CDlCheckListItem::CheckBox);
    CDlCheckListItem plain(nullptr, &tree, QStringLiteral("b.so"), CDlCheckListItem::Plain);
    EXPECT_TRUE(box.flags() & Qt::ItemIsUserCheckable);
    EXPECT_EQ(Qt::Unchecked, box.checkState(0));
    EXPECT_FALSE(plain.data(0, Qt::CheckStateRole).isValid());
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
