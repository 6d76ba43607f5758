// The dialog driver answering the module's question box and a message box as
// a script's "answer" does, from the box's own event loop.
#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>
#include <gtest/gtest.h>

#include "host/app/DialogDriver.h"
#include "ui/DownloadMessInfo.h"

namespace {

DialogDriver driver()
{
    return DialogDriver([](const char*) { return QString(); });
}

// Yes is the box's first button and No its last; the window's own close
// control is a No as well.
TEST(DialogDriverTest, AnswersTheModulesQuestionBoxYesWithItsFirstButtonAndNoWithItsLast)
{
    enum Answer { Yes, No, Closed };
    for (const Answer answer : {Yes, No, Closed}) {
        CDownloadMessInfo question(nullptr, QStringLiteral("Updates found"),
                                   QStringLiteral("Download new version?"));
        EXPECT_FALSE(question.windowIcon().isNull());
        QString seen;
        QTimer::singleShot(0, [&] {
            QDialog* box = driver().openBox();
            ASSERT_EQ(box, &question);
            seen = DialogDriver::boxTitle(box) + " | " + DialogDriver::boxText(box);
            if (answer == Closed)
                box->close();
            else
                EXPECT_TRUE(DialogDriver::answerBox(box, answer == Yes));
        });
        // 0 is the box's OK, 1 its Cancel.
        EXPECT_EQ(question.start(), answer == Yes ? 0 : 1);
        EXPECT_EQ(seen, QStringLiteral("Updates found | Download new version?"));
        EXPECT_EQ(driver().openBox(), nullptr);
    }
}

TEST(DialogDriverTest, AnswersAMessageBoxAndLeavesOtherWindowsAlone)
{
    // A visible window that is not modal is no box to answer.
    QWidget plain;
    plain.show();
    EXPECT_EQ(driver().openBox(), nullptr);
    EXPECT_EQ(driver().window(), nullptr);

    QMessageBox box(QMessageBox::Question, QStringLiteral("Error"), QStringLiteral("Bad\r\nConfiguration"),
                    QMessageBox::Yes | QMessageBox::No);
    QTimer::singleShot(0, [&] {
        QDialog* open = driver().openBox();
        ASSERT_EQ(open, &box);
        DialogDriver::answerBox(open, false);
    });
    const int pressed = box.exec();
    // The last button in screen order; which one that is depends on the
    // style's button layout, so compare with what the screen shows.
    QList<QAbstractButton*> buttons = box.buttons();
    std::sort(buttons.begin(), buttons.end(), [](QAbstractButton* a, QAbstractButton* b) {
        return a->mapToGlobal(QPoint()).x() < b->mapToGlobal(QPoint()).x();
    });
    EXPECT_EQ(pressed, int(box.standardButton(buttons.last())));
}

}  // namespace
