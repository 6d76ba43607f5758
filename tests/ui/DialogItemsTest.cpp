// The tree rows and the question box.
#include <QLabel>
#include <QPushButton>
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
    EXPECT_EQ(QStringLiteral("a.so"), box.text(0));
    EXPECT_EQ(QStringLiteral("File not found"), box.textSlot2);
    box.stateChange(true);  // no dialog to tell: nothing happens

    CDlCheckListItem plain(nullptr, &tree, QStringLiteral("b.so"), CDlCheckListItem::Plain);
    EXPECT_FALSE(plain.data(0, Qt::CheckStateRole).isValid());  // no check box is drawn

    CDlListViewItem inTree(&tree);
    CDlListViewItem under(static_cast<QTreeWidgetItem*>(&box));
    EXPECT_EQ(QStringLiteral("File not found"), inTree.textSlot2);
    EXPECT_EQ(QStringLiteral("File not found"), inTree.textSlot3);
    EXPECT_TRUE(under.textSlot2.isEmpty());
    EXPECT_TRUE(under.textSlot3.isEmpty());
    EXPECT_EQ(&box, under.parent());
}

TEST(DialogItems, QuestionBoxTellsWhichButton)
{
    CDownloadMessInfo box(nullptr, QStringLiteral("Title"), QStringLiteral("Question?"));
    EXPECT_EQ(QSize(250, 100), box.size());
    EXPECT_EQ(QStringLiteral("Title"), box.windowTitle());
    EXPECT_EQ(QStringLiteral("Question?"), box.textLabel()->text());
    EXPECT_EQ(QRect(30, 65, 75, 25), box.okButton()->geometry());
    EXPECT_FALSE(box.windowIcon().isNull());

    QTimer::singleShot(0, box.okButton(), &QPushButton::click);
    EXPECT_EQ(0, box.start());
    QTimer::singleShot(0, box.cancelButton(), &QPushButton::click);
    EXPECT_EQ(1, box.start());
    QTimer::singleShot(0, &box, &QDialog::close);  // the window's own close control
    EXPECT_EQ(1, box.start());
}
