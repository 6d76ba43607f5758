// Installation through the dialog with the real updater program: its progress
// window, its Cancel and the report. What it does to files is WorkflowInstallTest's.

#include <QProgressDialog>
#include <QPushButton>
#include <QTextBlock>
#include <QTextDocument>

#include "ui/TextEdit.h"
#include "ui/UiFixture.h"

namespace {

class Installation : public UiFixture {
protected:
    void SetUp() override
    {
        UiFixture::SetUp();
        installWithTheRealUpdater(DM_UPDATER_PATH);
    }

    // Ticks the rows and runs them until installation has ended (-2: it never
    // did), pressing the progress window's Cancel once cancelWhenExists
    // exists, and reading and closing the report.
    int runAndInstall(std::initializer_list<const char*> rows)
    {
        CDownloadWidget* widget = openWindow();
        if (!widget)
            return -2;
        tick(widget, rows);
        int result = -2;
        QTimer watcher;  // also the context that ends the connections with this call
        QObject::connect(widget, &CDownloadWidget::SignalInstallationEnded, &watcher, [&result](int r) { result = r; });
        QObject::connect(&watcher, &QTimer::timeout, &watcher, [this, widget] {
            for (QWidget* window : QApplication::topLevelWidgets()) {
                auto* progress = qobject_cast<QProgressDialog*>(window);
                if (progress && progress->isVisible() && !cancelWhenExists.isEmpty() && QFile::exists(cancelWhenExists))
                    progress->cancel();
            }
            QDialog* report = widget->updateReport();
            if (!report || !report->isVisible())
                return;
            QTextDocument* text = report->findChild<CTextEdit*>()->document();
            for (QTextBlock block = text->begin(); block.isValid(); block = block.next()) {
                const QTextCharFormat format =
                    block.begin().atEnd() ? block.charFormat() : block.begin().fragment().charFormat();
                reportLines << QStringLiteral("%1|%2|%3").arg(block.text(), format.foreground().color().name())
                                   .arg(format.fontWeight());
            }
            report->findChild<QPushButton*>()->click();
        });
        watcher.start(20);
        widget->startControl()->click();
        waitFor([&result] { return result != -2; });
        return result;
    }

    QStringList reportLines;  // what the report showed: "text|colour|weight" a line
    QString cancelWhenExists;  // press Cancel in the progress window once this file exists
};

}  // namespace

// The report: the restart line red and bold, then "End updating", an empty
// line and one line per module. (That the progress window shows, the Cancel
// test proves by pressing it.)
TEST_F(Installation, TheProgressWindowThenTheReportShowTheInstalledModules)
{
    EXPECT_EQ(3, runAndInstall({"Standard", "charts.so", "orders.so"}));
    EXPECT_EQ((QStringList{"MD0025Message|#ff0000|75", "MD0024|#000000|50", "|#000000|50",
                           " - quotes.so          ver: 2.1.0|#000000|50",
                           " - charts.so          ver: 1.5.0|#000000|50",
                           " - orders.so          ver: 4.0.0|#000000|50"}),
              reportLines);
}

// Cancel while the updater is busy (without it the failing updater would end
// the run with 2): the window waits for its worker instead of killing it,
// which took the whole host process down; nothing is reported.
TEST_F(Installation, CancelWaitsForTheBusyUpdaterAndStops)
{
    cancelWhenExists = root.filePath(QStringLiteral("updater-busy"));
    qputenv("VELMORA_UPDATER", DM_FAILING_UPDATER_PATH);
    qputenv("DM_UPDATER_DELAY_MS", "2500");
    qputenv("DM_UPDATER_BUSY_MARK", QFile::encodeName(cancelWhenExists));
    EXPECT_EQ(-1, runAndInstall({"charts.so", "orders.so"}));
    qunsetenv("DM_UPDATER_DELAY_MS");
    qunsetenv("DM_UPDATER_BUSY_MARK");
    EXPECT_TRUE(reportLines.isEmpty());
}
