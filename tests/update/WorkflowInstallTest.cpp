// Installation by the workflow with the real updater program: files
// installed with backups and reported, a missing updater, Cancel while the
// updater is busy, a truncated download, and the configuration file.
#include <cstring>

#include <QDirIterator>

#include "protocol/HostMessages.h"
#include "update/WorkflowFixture.h"

namespace {

class Installation : public WorkflowFixture {
protected:
    void SetUp() override
    {
        WorkflowFixture::SetUp();
        installWithTheRealUpdater(DM_UPDATER_PATH);
        writeText(installDir + "/charts.so", "the old charts");
        startNginx();
    }

    // Ticks the rows, runs and installs; the installation's result (-2: it never ended).
    int install(std::initializer_list<const char*> rows)
    {
        if (!openAndSearch())
            return -2;
        for (const char* row : rows)
            view.tick(row);
        return until(&CUpdateWorkflow::SignalInstallationEnded, [this] { flow->run().clickStartDownload(); });
    }

};

}  // namespace

TEST_F(Installation, FetchedFilesAreInstalledBackedUpAndReported)
{
    EXPECT_EQ(3, install({"Standard", "charts.so", "orders.so"}));
    EXPECT_TRUE(prompts.boxes.isEmpty()) << prompts.boxes.join('\n').toStdString();
    for (const auto& [name, bytes] : programs)
        EXPECT_EQ(bytes, fileBytes(installDir + '/' + name)) << name.toStdString();
    // The replaced file is kept under the backup folder, by its full path.
    QStringList backups;
    QDirIterator it(flow->backupFolder(), {QStringLiteral("*.so")}, QDir::Files,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        backups << it.next();
    ASSERT_EQ(1, backups.size()) << backups.join('\n').toStdString();
    EXPECT_TRUE(backups[0].endsWith(installDir + "/charts.so")) << backups[0].toStdString();
    EXPECT_EQ(QByteArray("the old charts"), fileBytes(backups[0]));
    EXPECT_FALSE(QFile::exists(downloaded("charts.so.gz")));  // unpacked, then handed over
    EXPECT_EQ((QStringList{"quotes.so 2.1.0", "charts.so 1.5.0", "orders.so 4.0.0"}), prompts.report);
    // The finished run is forgotten once the report is closed.
    EXPECT_EQ(0, state().getCountLastDownloadModule());
}

TEST_F(Installation, AMissingUpdaterSaysUpdateFailedAndChangesNothing)
{
    qputenv("VELMORA_UPDATER", QFile::encodeName(root.filePath("no-such-updater")));
    EXPECT_EQ(-1, install({"charts.so"}));
    EXPECT_EQ(QStringList{"MD0050 | MD0053"}, prompts.boxes);
    EXPECT_FALSE(prompts.installationRan);
    EXPECT_EQ(QByteArray("the old charts"), fileBytes(installDir + "/charts.so"));
    EXPECT_TRUE(prompts.report.isEmpty());
    // The fetched file waits for a later installation.
    EXPECT_EQ(1, state().getCountStateLastDownloadModule(dlStateFetched));
}

// Cancel while the updater is busy with a file for longer than the module
// would wait: the module waits for its worker instead of killing it, tells
// the updater nothing more follows, and stops: no new list search, nothing
// reported installed.
TEST_F(Installation, CancelWaitsForTheBusyUpdaterAndStops)
{
    prompts.cancelWhenExists = root.filePath(QStringLiteral("updater-busy"));
    qputenv("VELMORA_UPDATER", DM_FAILING_UPDATER_PATH);
    qputenv("DM_UPDATER_DELAY_MS", "2500");
    qputenv("DM_UPDATER_BUSY_MARK", QFile::encodeName(prompts.cancelWhenExists));
    EXPECT_EQ(-1, install({"charts.so", "orders.so"}));
    qunsetenv("DM_UPDATER_DELAY_MS");
    qunsetenv("DM_UPDATER_BUSY_MARK");
    EXPECT_TRUE(QFile::exists(prompts.cancelWhenExists)) << "the updater never began a file";
    EXPECT_TRUE(prompts.report.isEmpty());
    EXPECT_TRUE(QFile::exists(downloaded("moduleDesc.txt")));  // no new search cleared it
    EXPECT_EQ(2, state().getCountLastDownloadModule());
    EXPECT_EQ(0, state().getCountStateLastDownloadModule(dlStateInstalled));
}

// A file whose gzip stream ends early is never handed to the updater: it is
// deleted and stays to be fetched again; the rest of the run is installed.
TEST_F(Installation, ATruncatedDownloadIsNotInstalledButFetchedAgainLater)
{
    const QByteArray whole = served("charts.so.gz");
    writeText(serverRoot + "/files/charts.so.gz", whole.left(whole.size() / 2));
    install({"charts.so", "orders.so"});
    EXPECT_EQ(QByteArray("the old charts"), fileBytes(installDir + "/charts.so"));
    EXPECT_EQ(programs["orders.so"], fileBytes(installDir + "/orders.so"));
    EXPECT_FALSE(QFile::exists(downloaded("charts.so.gz")));
    EXPECT_FALSE(QFile::exists(downloaded("charts.so")));
    EXPECT_EQ(1, state().getCountStateLastDownloadModule(dlStateToFetch));
    EXPECT_EQ(1, state().getCountStateLastDownloadModule(dlStateInstalled));
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
    const QString copied = copyRoot + "/Config/standard-installed.cfg";
    writeText(configFile, "the installed configuration");
    host->folders[151] = copyRoot;
    host->products.configPaths["Standard"] = configFile;
    for (const bool present : {true, false}) {
        SCOPED_TRACE(present ? "file present" : "file missing");
        const QString local = downloaded("standard.cfg");
        QDir().mkpath(host->downloadDir);
        QFile::remove(copied);
        if (present)
            writeText(local, "the new configuration");
        // As a module list names a configuration's file: its own name, and
        // the configuration it belongs to as "NameConfig".
        dlModule record = storedRecord("standard.cfg", "3.4.0", "/configs/standard.cfg", "2");
        setDlText(record.auxPath, "Standard");
        storeRun({{record, dlStateFetched}});
        host->messages.clear();
        prompts.report.clear();
        open();
        EXPECT_EQ(1, until(&CUpdateWorkflow::SignalInstallationEnded, [this] { flow->continueDownload(); }));
        EXPECT_EQ(QStringList{"standard.cfg 3.4.0"}, prompts.report);
        EXPECT_EQ(0, state().getCountLastDownloadModule());
        EXPECT_FALSE(QFile::exists(local));

        std::ptrdiff_t arrived = -1, copyFolder = -1, configPath = -1;
        for (std::size_t i = 0; i < host->messages.size(); ++i) {
            const RecordedMessage& m = host->messages[i];
            int32_t folderType = 0;
            if (m.code == HostMsg::FolderByType && m.record.size() >= int(sizeof folderType))
                std::memcpy(&folderType, m.record.constData() + offsetof(coreFolder, type), sizeof folderType);
            for (auto [found, where] : {std::pair{m.code == HostMsg::ConfigFileArrived, &arrived},
                                        {folderType == 151, &copyFolder},
                                        {m.code == HostMsg::PathToConfigFile, &configPath}})
                if (found && *where < 0)
                    *where = std::ptrdiff_t(i);
        }
        if (!present) {
            EXPECT_EQ(-1, arrived);
            EXPECT_FALSE(QFile::exists(copied));
            continue;
        }
        ASSERT_GE(arrived, 0);
        EXPECT_EQ(local.toLocal8Bit(), QByteArray(host->messages[std::size_t(arrived)].record.constData()));
        EXPECT_LT(arrived, copyFolder);
        EXPECT_LT(copyFolder, configPath);
        EXPECT_EQ(QByteArray("the installed configuration"), fileBytes(copied));
    }
}
