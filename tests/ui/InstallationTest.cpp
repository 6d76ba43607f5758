// Installation through the dialog: its progress window, its Cancel and the
// report, with the real updater program.

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

    // Starts a run of the ticked rows and answers what the dialog asks until
    // installation has ended (-2: it never did); the report's lines are kept.
    int runAndInstall(CDownloadWidget* widget)
    {
        int result = -2;
        const QMetaObject::Connection ended = QObject::connect(
            widget, &CDownloadWidget::SignalInstallationEnded, widget, [&result](int r) { result = r; });
        QTimer watcher;
        QObject::connect(&watcher, &QTimer::timeout, [this, widget] { answer(widget); });
        watcher.start(20);
        widget->startControl()->click();
        waitFor([&result] { return result != -2; });
        QObject::disconnect(ended);
        return result;
    }

    void answer(CDownloadWidget* widget)
    {
        if (QDialog* report = widget->updateReport(); report && report->isVisible()) {
            auto* view = report->findChild<CTextEdit*>();
            for (QTextBlock block = view->document()->begin(); block.isValid(); block = block.next()) {
                const QTextCharFormat format =
                    block.begin().atEnd() ? block.charFormat() : block.begin().fragment().charFormat();
                reportLines << QStringLiteral("%1|%2|%3").arg(block.text(), format.foreground().color().name())
                                   .arg(format.fontWeight());
            }
            report->findChild<QPushButton*>()->click();
            return;
        }
        for (QWidget* window : QApplication::topLevelWidgets()) {
            if (auto* progress = qobject_cast<QProgressDialog*>(window); progress && progress->isVisible()) {
                progressSeen = true;
                if (!cancelWhenExists.isEmpty() && QFile::exists(cancelWhenExists))
                    progress->cancel();
            }
        }
    }

    QStringList reportLines;  // what the report showed: "text|colour|weight" a line
    bool progressSeen = false;
    QString cancelWhenExists;  // press Cancel in the progress window once this file exists
};

}  // namespace

// What the window shows of an installation: its progress window, then the
// report, the restart line red and bold, then "End updating", an empty line
// and one line per module.
TEST_F(Installation, TheProgressWindowThenTheReportShowTheInstalledModules)
{
    startNginx();
    CDownloadWidget* widget = openDialog();
    ASSERT_TRUE(openWindowAndWaitForLists(widget));
    tick(widget, "Standard");
    tick(widget, "charts.so");
    tick(widget, "orders.so");

    EXPECT_EQ(3, runAndInstall(widget));
    EXPECT_EQ(QStringList(), boxes);
    EXPECT_TRUE(progressSeen);
    EXPECT_EQ(programs["orders.so"], fileBytes(installDir + "/orders.so"));
    EXPECT_EQ((QStringList{"MD0025Message|#ff0000|75", "MD0024|#000000|50", "|#000000|50",
                           " - quotes.so          ver: 2.1.0|#000000|50",
                           " - charts.so          ver: 1.5.0|#000000|50",
                           " - orders.so          ver: 4.0.0|#000000|50"}),
              reportLines);
}

// Cancel in the progress window while the updater is busy: the window waits
// for its worker instead of killing it (which took the whole host process
// down) and the run stops with nothing reported installed.
TEST_F(Installation, CancelWaitsForTheBusyUpdaterAndStops)
{
    cancelWhenExists = root.filePath(QStringLiteral("updater-busy"));
    qputenv("VELMORA_UPDATER", DM_FAILING_UPDATER_PATH);
    qputenv("DM_UPDATER_DELAY_MS", "2500");
    qputenv("DM_UPDATER_BUSY_MARK", QFile::encodeName(cancelWhenExists));
    startNginx();
    CDownloadWidget* widget = openDialog();
    ASSERT_TRUE(openWindowAndWaitForLists(widget));
    tick(widget, "charts.so");
    tick(widget, "orders.so");
    // What the workflow does after a Cancel is WorkflowInstallTest's.
    EXPECT_EQ(-1, runAndInstall(widget));
    qunsetenv("DM_UPDATER_DELAY_MS");
    qunsetenv("DM_UPDATER_BUSY_MARK");
    EXPECT_TRUE(QFile::exists(cancelWhenExists)) << "the updater never began a file";
    EXPECT_TRUE(reportLines.isEmpty());
}
