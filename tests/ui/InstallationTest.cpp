// Installation through the dialog: the fetched files handed to the real
// updater program, the report, and the failures a user can meet.
#include <cstring>

#include <zlib.h>

#include <QDirIterator>
#include <QLabel>
#include <QMessageBox>
#include <QProgressDialog>
#include <QPushButton>
#include <QTextBlock>
#include <QTextDocument>

#include "ui/TextEdit.h"
#include "ui/UiFixture.h"
#include "update/SaveParamDownload.h"

namespace {

QByteArray gzipped(const QByteArray& bytes, const QString& path)
{
    gzFile out = gzopen(path.toLocal8Bit().constData(), "wb");
    gzwrite(out, bytes.constData(), unsigned(bytes.size()));
    gzclose(out);
    return fileBytes(path);
}

class Installation : public UiFixture {
protected:
    void SetUp() override
    {
        UiFixture::SetUp();
        installDir = root.filePath(QStringLiteral("install/bin"));
        QDir().mkpath(installDir);
        host->folders[1] = installDir;
        host->folders[150] = root.filePath(QStringLiteral("install/other"));
        QDir().mkpath(host->folders[150]);
        // The server publishes gzip files, as the publishing tool does.
        for (const char* name : {"quotes.so", "charts.so", "orders.so"}) {
            const QByteArray plain = patternBytes(64 * 1024, name[0]);
            programs[name] = plain;
            gzipped(plain, serverRoot + "/files/" + name + ".gz");
        }
        qputenv("VELMORA_UPDATER", DM_UPDATER_PATH);
    }

    // Does what leads to installation and answers what the dialog asks until
    // installation has ended (-2: it never did); the report's lines are kept.
    template <class Start>
    int installAfter(CDownloadWidget* widget, Start start)
    {
        int result = -2;
        const QMetaObject::Connection ended = QObject::connect(
            widget, &CDownloadWidget::SignalInstallationEnded, widget, [&result](int r) { result = r; });
        QTimer watcher;
        QObject::connect(&watcher, &QTimer::timeout, [this, widget] { answer(widget); });
        watcher.start(20);
        start();
        waitFor([&result] { return result != -2; });
        QObject::disconnect(ended);
        return result;
    }

    // Starts a run of the ticked rows and installs what it fetched.
    int runAndInstall(CDownloadWidget* widget)
    {
        return installAfter(widget, [widget] { widget->startControl()->click(); });
    }

    void answer(CDownloadWidget* widget)
    {
        if (QDialog* report = widget->updateReport(); report && report->isVisible()) {
            auto* view = report->findChild<CTextEdit*>();
            for (QTextBlock block = view->document()->begin(); block.isValid(); block = block.next()) {
                const QTextCharFormat format = block.begin().atEnd()
                    ? block.charFormat()
                    : block.begin().fragment().charFormat();
                reportLines << QStringLiteral("%1|%2|%3").arg(block.text(),
                                                              format.foreground().color().name())
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

    QString installDir;
    std::map<QString, QByteArray> programs;
    QStringList reportLines;  // what the report showed: "text|colour|weight" a line
    QStringList boxes() const
    {
        QStringList seen;
        for (const ModalAnswerer::Seen& box : answerer->seen)
            seen << box.title + " | " + box.text;
        return seen;
    }
    bool progressSeen = false;
    QString cancelWhenExists;  // press Cancel in the progress window once this file exists
};

}  // namespace

TEST_F(Installation, FetchedFilesAreInstalledBackedUpAndReported)
{
    writeText(installDir + "/charts.so", "the old charts");
    startNginx();
    CDownloadWidget* widget = openDialog();
    ASSERT_TRUE(openWindowAndWaitForLists(widget));
    tick(widget, "Standard");
    tick(widget, "charts.so");
    tick(widget, "orders.so");

    const int result = runAndInstall(widget);
    EXPECT_EQ(3, result);
    EXPECT_TRUE(boxes().isEmpty()) << boxes().join('\n').toStdString();
    EXPECT_TRUE(progressSeen);
    for (const auto& [name, bytes] : programs)
        EXPECT_EQ(bytes, fileBytes(installDir + '/' + name)) << name.toStdString();
    // The replaced file is kept under the backup folder, by its full path.
    QStringList backups;
    QDirIterator it(widget->getBackupDirPath(), {QStringLiteral("*.so")}, QDir::Files,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        backups << it.next();
    ASSERT_EQ(1, backups.size()) << backups.join('\n').toStdString();
    EXPECT_TRUE(backups[0].endsWith(installDir + "/charts.so")) << backups[0].toStdString();
    EXPECT_EQ(QByteArray("the old charts"), fileBytes(backups[0]));
    EXPECT_FALSE(QFile::exists(downloaded("charts.so.gz")));  // unpacked, then handed over

    // The restart line red and bold, then "End updating", an empty line and
    // one line per module.
    EXPECT_EQ((QStringList{"MD0025Message|#ff0000|75", "MD0024|#000000|50", "|#000000|50",
                           " - quotes.so          ver: 2.1.0|#000000|50",
                           " - charts.so          ver: 1.5.0|#000000|50",
                           " - orders.so          ver: 4.0.0|#000000|50"}),
              reportLines);

    // The finished run is forgotten once the report is closed.
    EXPECT_EQ(0, CSaveParamDownload(host->downloadDir).getCountLastDownloadModule());
}

TEST_F(Installation, AMissingUpdaterSaysUpdateFailedAndChangesNothing)
{
    qputenv("VELMORA_UPDATER", QFile::encodeName(root.filePath("no-such-updater")));
    writeText(installDir + "/charts.so", "the old charts");
    startNginx();
    CDownloadWidget* widget = openDialog();
    ASSERT_TRUE(openWindowAndWaitForLists(widget));
    tick(widget, "charts.so");

    EXPECT_EQ(-1, runAndInstall(widget));
    EXPECT_EQ(QStringList{"MD0050 | MD0053"}, boxes());
    EXPECT_FALSE(progressSeen);
    EXPECT_EQ(QByteArray("the old charts"), fileBytes(installDir + "/charts.so"));
    EXPECT_TRUE(reportLines.isEmpty());
    // The fetched file waits for a later installation.
    EXPECT_EQ(1, CSaveParamDownload(host->downloadDir).getCountStateLastDownloadModule(2));
}

// Cancel while the updater is busy with a file for longer than the module
// would wait: the module waits for its worker instead of killing it (which
// took the whole host process down), tells the updater nothing more follows,
// and stops: no new list search, nothing reported installed.
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
    // Whether the window cleared its lists to search again, seen as the run
    // ends, before any new search could have fetched them.
    bool listsKept = false;
    QObject::connect(widget, &CDownloadWidget::SignalInstallationEnded, widget,
                     [&] { listsKept = QFile::exists(downloaded("moduleDesc.txt")); });

    EXPECT_EQ(-1, runAndInstall(widget));
    qunsetenv("DM_UPDATER_DELAY_MS");
    qunsetenv("DM_UPDATER_BUSY_MARK");
    EXPECT_TRUE(QFile::exists(cancelWhenExists)) << "the updater never began a file";
    EXPECT_TRUE(reportLines.isEmpty());
    EXPECT_TRUE(listsKept);
    CSaveParamDownload state(host->downloadDir);
    EXPECT_EQ(2, state.getCountLastDownloadModule());
    EXPECT_EQ(0, state.getCountStateLastDownloadModule(3));
}

// A file whose gzip stream ends early is never handed to the updater: it is
// deleted and stays to be fetched again; the rest of the run is installed.
TEST_F(Installation, ATruncatedDownloadIsNotInstalledButFetchedAgainLater)
{
    writeText(installDir + "/charts.so", "the old charts");
    const QString served = serverRoot + "/files/charts.so.gz";
    const QByteArray whole = fileBytes(served);
    writeText(served, whole.left(whole.size() / 2));
    startNginx();
    CDownloadWidget* widget = openDialog();
    ASSERT_TRUE(openWindowAndWaitForLists(widget));
    tick(widget, "charts.so");
    tick(widget, "orders.so");

    runAndInstall(widget);
    EXPECT_EQ(QByteArray("the old charts"), fileBytes(installDir + "/charts.so"));
    EXPECT_EQ(programs["orders.so"], fileBytes(installDir + "/orders.so"));
    EXPECT_FALSE(QFile::exists(downloaded("charts.so.gz")));
    EXPECT_FALSE(QFile::exists(downloaded("charts.so")));
    CSaveParamDownload state(host->downloadDir);
    EXPECT_EQ(1, state.getCountStateLastDownloadModule(1));
    EXPECT_EQ(1, state.getCountStateLastDownloadModule(3));
}

// A stored run that carries the configuration file: the host is told it
// arrived (3090), the file goes, and the configuration's own file is copied
// into the copy folder, the folder asked for before the file (3128 for 151,
// then 3209). When the file has gone from the download folder it is passed
// over and counted as done. Either way the report shows and the run ends.
TEST_F(Installation, TheConfigurationFileIsAnnouncedAndCopiedOrPassedOver)
{
    const QString copyRoot = root.filePath(QStringLiteral("configcopy"));
    const QString configFile = root.filePath(QStringLiteral("standard-installed.cfg"));
    writeText(configFile, "the installed configuration");
    host->folders[151] = copyRoot;
    host->products.configPaths["Standard"] = configFile;
    for (const bool present : {true, false}) {
        SCOPED_TRACE(present ? "file present" : "file missing");
        const QString local = downloaded("standard.cfg");
        QDir().mkpath(host->downloadDir);
        QFile::remove(local);
        QFile::remove(copyRoot + "/Config/standard-installed.cfg");
        if (present)
            writeText(local, "the new configuration");
        {
            CSaveParamDownload stored(host->downloadDir);
            // As a module list names a configuration's file: its own name,
            // and the configuration it belongs to as "NameConfig".
            dlModule record = emptyDlModule();
            setDlText(record.name, "standard.cfg");
            setDlText(record.auxPath, "Standard");
            setDlText(record.version, "3.4.0");
            setDlText(record.type, "2");
            setDlText(record.serverPath, "/configs/standard.cfg");
            setDlText(record.localPath, local.toLocal8Bit());
            stored.createLastDownload(1);
            stored.saveLastDownloadModule(record, 2);
        }
        host->messages.clear();
        reportLines.clear();
        CDownloadWidget* widget = openDialog();
        EXPECT_EQ(1, installAfter(widget, [widget] { widget->continueDownload(); }));
        EXPECT_TRUE(reportLines.join('\n').contains(QStringLiteral(" - standard.cfg          ver: 3.4.0")))
            << reportLines.join('\n').toStdString();
        EXPECT_EQ(0, CSaveParamDownload(host->downloadDir).getCountLastDownloadModule());
        EXPECT_FALSE(QFile::exists(local));

        std::ptrdiff_t arrived = -1, copyFolder = -1, configPath = -1;
        for (std::size_t i = 0; i < host->messages.size(); ++i) {
            const RecordedMessage& m = host->messages[i];
            if (m.code == HostMsg::ConfigFileArrived && arrived < 0)
                arrived = std::ptrdiff_t(i);
            int32_t folderType = 0;
            if (m.code == HostMsg::FolderByType && m.record.size() >= int(sizeof folderType))
                std::memcpy(&folderType, m.record.constData() + offsetof(coreFolder, type), sizeof folderType);
            if (folderType == 151 && copyFolder < 0)
                copyFolder = std::ptrdiff_t(i);
            if (m.code == HostMsg::PathToConfigFile && configPath < 0)
                configPath = std::ptrdiff_t(i);
        }
        if (!present) {
            EXPECT_EQ(-1, arrived);
            EXPECT_FALSE(QFile::exists(copyRoot + "/Config/standard-installed.cfg"));
            continue;
        }
        ASSERT_GE(arrived, 0);
        EXPECT_EQ(local.toLocal8Bit(),
                  QByteArray(host->messages[std::size_t(arrived)].record.constData()));
        EXPECT_LT(arrived, copyFolder);
        EXPECT_LT(copyFolder, configPath);
        EXPECT_EQ(QByteArray("the installed configuration"),
                  fileBytes(copyRoot + "/Config/standard-installed.cfg"));
    }
}
