// Installation by the workflow with the real updater program: files
// installed with backups and reported, the configuration file, and the
// family of ways an installation fails (InstallFaults).
#include <csignal>
#include <cstring>
#include <thread>

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QDirIterator>

#include "protocol/HostMessages.h"
#include "transfer/support/FileHelpers.h"
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

    // Opens on a stored run and installs it, as the dialog does when it opens on one.
    int installStored()
    {
        open();
        return until(&CUpdateWorkflow::SignalInstallationEnded, [this] { flow->continueDownload(); });
    }
    // The files below folder (those matching patterns, when given, at its top
    // only): "name" holding the new program, "name(old)" holding the replaced
    // one, "updater.log(N failed)", "*.part" for a temporary file.
    QString files(const QString& folder, const QStringList& patterns = {}) const
    {
        QStringList out;
        QDirIterator it(folder, patterns, QDir::Files | QDir::Hidden,
                        patterns.isEmpty() ? QDirIterator::Subdirectories : QDirIterator::NoIteratorFlags);
        while (it.hasNext()) {
            const QFileInfo file(it.next());
            const QString name = file.fileName().endsWith(".part") ? "*.part" : file.fileName();
            const QByteArray bytes = fileBytes(file.filePath());
            out << name + (name == "updater.log"    ? QString("(%1 failed)").arg(bytes.count("failed: "))
                           : bytes == "the old charts" ? "(old)"
                           : name.endsWith(".gz") || (programs.count(name) && programs.at(name) == bytes) ? ""
                                                                                                           : "(other)");
        }
        out.sort();
        return out.join(' ');
    }
};

}  // namespace

TEST_F(Installation, FetchedFilesAreInstalledBackedUpAndReported)
{
    ASSERT_TRUE(openAndSearch());
    for (const char* row : {"Standard", "charts.so", "orders.so"})
        view.tick(row);
    EXPECT_EQ(3, until(&CUpdateWorkflow::SignalInstallationEnded, [this] { flow->run().clickStartDownload(); }));
    EXPECT_TRUE(prompts.boxes.isEmpty()) << prompts.boxes.join('\n').toStdString();
    EXPECT_EQ("charts.so orders.so quotes.so", files(installDir));
    EXPECT_EQ("charts.so orders.so quotes.so", files(host->downloadDir, {"*.so*"}));  // unpacked, then handed over
    // The replaced file is kept under the backup folder, by its full path.
    EXPECT_EQ("charts.so(old) updater.log(0 failed)", files(flow->backupFolder()));
    QDirIterator backup(flow->backupFolder(), {"charts.so"}, QDir::Files, QDirIterator::Subdirectories);
    EXPECT_TRUE(backup.hasNext() && backup.next().endsWith(installDir + "/charts.so"));
    EXPECT_EQ((QStringList{"quotes.so 2.1.0", "charts.so 1.5.0", "orders.so 4.0.0"}), prompts.report);
    // The finished run is forgotten once the report is closed.
    EXPECT_EQ(0, state().getCountLastDownloadModule());
}

// A stored run that carries the configuration file: the host is told it
// arrived (3090), the file goes, and the configuration's own file is copied
// into the copy folder, the folder asked for before the file (3128 for 151,
// then 3209). The report shows and the run ends.
TEST_F(Installation, TheConfigurationFileIsAnnouncedAndCopied)
{
    const QString copyRoot = root.filePath(QStringLiteral("configcopy"));
    const QString configFile = root.filePath(QStringLiteral("standard-installed.cfg"));
    writeText(configFile, "the installed configuration");
    host->folders[151] = copyRoot;
    host->products.configPaths["Standard"] = configFile;
    const QString local = downloaded("standard.cfg");
    writeText(local, "the new configuration");
    // As a module list names a configuration's file: its own name, and the
    // configuration it belongs to as "NameConfig".
    dlModule record = storedRecord("standard.cfg", "3.4.0", "/configs/standard.cfg", "2");
    setDlText(record.auxPath, "Standard");
    storeRun({{record, dlStateFetched}});
    host->messages.clear();
    EXPECT_EQ(1, installStored());
    EXPECT_EQ(QStringList{"standard.cfg 3.4.0"}, prompts.report);
    EXPECT_EQ(0, state().getCountLastDownloadModule());
    EXPECT_FALSE(QFile::exists(local));
    QStringList order;
    for (const RecordedMessage& m : host->messages) {
        int32_t folderType = 0;
        if (m.code == HostMsg::FolderByType && m.record.size() >= int(sizeof folderType))
            std::memcpy(&folderType, m.record.constData() + offsetof(coreFolder, type), sizeof folderType);
        if (m.code == HostMsg::ConfigFileArrived)
            order << "arrived " + QString::fromLocal8Bit(m.record.constData());
        else if (folderType == 151 || m.code == HostMsg::PathToConfigFile)
            order << (folderType == 151 ? "copy folder" : "configuration's file");
    }
    order.removeDuplicates();
    EXPECT_EQ((QStringList{"arrived " + local, "copy folder", "configuration's file"}), order);
    EXPECT_EQ(QByteArray("the installed configuration"), fileBytes(copyRoot + "/Config/standard-installed.cfg"));
}

// ---------------------------------------------------------------------------
// InstallFaults: a stored run of charts.so.gz and orders.so.gz, fetched, is
// installed after one thing went wrong. Each row says what the user sees, the
// state file and the files of the install, download and backup folders.

namespace {

struct InstallFault;

class InstallFaults : public Installation, public ::testing::WithParamInterface<InstallFault> {
public:  // to the rows
    using Installation::files, WorkflowFixture::downloaded, WorkflowFixture::storeRun, WorkflowFixture::storedRecord,
        WorkflowFixture::programs, WorkflowFixture::prompts, WorkflowFixture::root, WorkflowFixture::host,
        WorkflowFixture::installDir;

    dlModule packed(const char* name, const char* version)
    {
        return storedRecord(name, version, QByteArray("/files/") + name + ".gz");
    }
    void damageCharts(const char* sample)
    {
        QFile::remove(downloaded("charts.so.gz"));
        QFile::copy(DM_SOURCE_DIR "/tests/install/data/" + QString(sample), downloaded("charts.so.gz"));
    }
    // The run names charts.so unpacked, as a terminal stopped after unpacking leaves it.
    void chartsUnpacked(const QByteArray& bytes)
    {
        dlModule charts = packed("charts.so", "1.5.0");
        setDlText(charts.localPath, downloaded("charts.so").toLocal8Bit());
        storeRun({{charts, dlStateFetched}, {packed("orders.so", "4.0.0"), dlStateFetched}});
        QFile::remove(downloaded("charts.so.gz"));
        if (!bytes.isNull())
            writeText(downloaded("charts.so"), programs["charts.so"] = bytes);
    }
    std::thread killer;
    std::atomic<bool> stopKiller{false};
    QString afterKill;  // the install folder once the updater was killed
    rlimit savedLimit{};
};

struct InstallFault {
    const char* name;
    void (*arrange)(InstallFaults&);
    int ended;            // the installation's result (-1: failed or cancelled)
    const char* seen;     // the boxes, then the report
    const char* states;   // the download state file afterwards
    const char* install;  // the install folder
    const char* left;     // the modules left in the download folder | the backup folder
    int runs = 1;         // installations of the stored run
};
void PrintTo(const InstallFault& row, std::ostream* out) { *out << row.name; }

// A download that does not unpack whole is never handed over: it and what
// was unpacked of it go, it is to be fetched again, and the run is not
// reported while it lacks a file.
InstallFault refetched(const char* name, void (*arrange)(InstallFaults&))
{
    return {name, arrange, 2, "", "charts.so.gz:1 orders.so:3", "charts.so(old) orders.so",
            "orders.so | updater.log(0 failed)"};
}
// The updater answers each file it cannot put in place with its error, logs
// it and leaves no temporary file; the run waits for a later installation.
InstallFault refused(const char* name, void (*arrange)(InstallFaults&))
{
    return {name, arrange, 2, "", "charts.so:2 orders.so:2", "charts.so(old)",
            "charts.so orders.so | updater.log(2 failed)"};
}

}  // namespace

TEST_P(InstallFaults, ShowTheUserAndLeaveTheFilesAsTheRowSays)
{
    const InstallFault& row = GetParam();
    ASSERT_EQ(0, ::getrlimit(RLIMIT_FSIZE, &savedLimit));
    storeRun({{packed("charts.so", "1.5.0"), dlStateFetched}, {packed("orders.so", "4.0.0"), dlStateFetched}});
    for (const char* name : {"charts.so.gz", "orders.so.gz"})
        writeText(downloaded(name), served(name));
    row.arrange(*this);
    int ended = -2;
    for (int run = 0; run < row.runs; ++run) {
        ended = installStored();
        ::setrlimit(RLIMIT_FSIZE, &savedLimit);
        stopKiller = true;
        if (killer.joinable())
            killer.join();
    }
    std::signal(SIGXFSZ, SIG_DFL);
    for (const char* name : {"VELMORA_UPDATER", "DM_UPDATER_DELAY_MS", "DM_UPDATER_BUSY_MARK"})
        qunsetenv(name);

    EXPECT_EQ(row.ended, ended);
    EXPECT_EQ(QString(row.seen), prompts.boxes.join("; ") + (prompts.report.isEmpty() ? "" : "report ")
                                     + prompts.report.join(", "));
    QStringList states;  // "file:state" of each stored record, by state
    for (int stage : {dlStateToFetch, dlStateFetched, dlStateInstalled, dlStateFailed})
        for (const dlModule& record : state().getLastDownloadModules(stage))
            states << QFileInfo(dlLocalText(record.localPath)).fileName() + ':' + QString::number(stage);
    EXPECT_EQ(QString(row.states), states.join(' '));
    EXPECT_EQ(QString(row.install), files(installDir));
    if (row.runs == 2) {  // killed mid-file: the old file whole beside part of the new one
        EXPECT_EQ("*.part(other) charts.so(old)", afterKill);
    }
    EXPECT_EQ(QString(row.left),
              files(host->downloadDir, {"*.so*", "*.cfg"}) + " | " + files(flow->backupFolder()));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, InstallFaults,
    ::testing::Values(
        refetched("TruncatedMidStream", [](InstallFaults& t) { t.damageCharts("gzip-truncated-mid-stream.gz"); }),
        refetched("TruncatedTrailer", [](InstallFaults& t) { t.damageCharts("gzip-truncated-trailer.gz"); }),
        refetched("BadChecksum", [](InstallFaults& t) { t.damageCharts("gzip-bad-crc.gz"); }),
        refetched("CorruptDeflateData", [](InstallFaults& t) { t.damageCharts("gzip-corrupt-deflate-data.gz"); }),
        refetched("PackedFileGone", [](InstallFaults& t) { QFile::remove(t.downloaded("charts.so.gz")); }),
        refetched("FolderWhereTheModuleUnpacks", [](InstallFaults& t) { QDir().mkpath(t.downloaded("charts.so")); }),
        // A full disk; here the file size limit, which fails writes the same way.
        refetched("DownloadFolderRefusesTheBytes", [](InstallFaults& t) {
            gzFile out = gzopen(QFile::encodeName(t.downloaded("charts.so.gz")), "wb");
            gzwrite(out, patternBytes(1 << 20, 9).constData(), 1 << 20);
            gzclose(out);
            std::signal(SIGXFSZ, SIG_IGN);
            const rlimit limited{64 * 1024, t.savedLimit.rlim_max};
            ::setrlimit(RLIMIT_FSIZE, &limited);
        }),
        InstallFault{"UnpackedBeforeAStop", [](InstallFaults& t) { t.chartsUnpacked(t.programs["charts.so"]); }, 2,
                     "report charts.so 1.5.0, orders.so 4.0.0", "", "charts.so orders.so",
                     "charts.so orders.so | charts.so(old) updater.log(0 failed)"},
        InstallFault{"UnpackedFileGone", [](InstallFaults& t) { t.chartsUnpacked(QByteArray()); }, 2, "",
                     "charts.so:2 orders.so:3", "charts.so(old) orders.so", "orders.so | updater.log(1 failed)"},
        InstallFault{"FolderWhereTheUnpackedModuleWas",
                     [](InstallFaults& t) { t.chartsUnpacked(QByteArray()), QDir().mkpath(t.downloaded("charts.so")); },
                     2, "", "charts.so:2 orders.so:3", "charts.so(old) orders.so", "orders.so | updater.log(1 failed)"},
        InstallFault{"UpdaterMissing", [](InstallFaults&) { qputenv("VELMORA_UPDATER", "/nonexistent/updater"); }, -1,
                     "MD0050 | MD0053", "charts.so.gz:2 orders.so.gz:2", "charts.so(old)",
                     "charts.so.gz orders.so.gz | "},
        // Ends without ever saying it is ready.
        InstallFault{"UpdaterNeverReady", [](InstallFaults&) { qputenv("VELMORA_UPDATER", "/bin/true"); },
                     -1, "", "charts.so.gz:2 orders.so.gz:2", "charts.so(old)", "charts.so.gz orders.so.gz | "},
        InstallFault{"UpdaterFailsEveryFile",
                     [](InstallFaults&) { qputenv("VELMORA_UPDATER", DM_FAILING_UPDATER_PATH); }, 2, "",
                     "charts.so:2 orders.so:2", "charts.so(old)", "charts.so orders.so | "},
        // Killed while it copies a large file: the old file stays whole, and
        // the next installation puts the new one in whole, keeps the old one
        // and removes the killed updater's temporary file.
        InstallFault{"UpdaterKilledMidFile", [](InstallFaults& t) {
            t.chartsUnpacked(patternBytes(1 << 20, 3).repeated(128));
            // Once it writes into the install folder; reaped as its host would.
            t.killer = std::thread([&t] {
                QStringList part;  // ".updater-<its pid>-<n>.part"
                while (!t.stopKiller
                       && (part = QDir(t.installDir).entryList({"*.part"}, QDir::Files | QDir::Hidden)).isEmpty())
                    std::this_thread::yield();
                if (const int updater = part.value(0).section('-', 1, 1).toInt(); updater > 0) {
                    ::kill(updater, SIGKILL), ::waitpid(updater, nullptr, 0);
                    t.afterKill = t.files(t.installDir);
                }
            });
        }, 2, "report charts.so 1.5.0, orders.so 4.0.0", "", "charts.so orders.so",
           "charts.so orders.so | charts.so(old) updater.log(0 failed)", 2},
        // Cancel while the updater is busy with a file for longer than the
        // module would wait: the module waits for it, tells it nothing more
        // follows, and nothing is reported installed.
        InstallFault{"CancelWhileTheUpdaterIsBusy", [](InstallFaults& t) {
            t.prompts.cancelWhenExists = t.root.filePath(QStringLiteral("updater-busy"));
            qputenv("VELMORA_UPDATER", DM_FAILING_UPDATER_PATH);
            qputenv("DM_UPDATER_DELAY_MS", "2500");
            qputenv("DM_UPDATER_BUSY_MARK", QFile::encodeName(t.prompts.cancelWhenExists));
        }, -1, "", "charts.so:2 orders.so.gz:2", "charts.so(old)", "charts.so orders.so.gz | "},
        // A configuration file gone from the download folder is passed over
        // and counted as done, so the run still ends with its report.
        InstallFault{"ConfigurationFileGone", [](InstallFaults& t) {
            dlModule config = t.storedRecord("standard.cfg", "3.4.0", "/configs/standard.cfg", "2");
            setDlText(config.auxPath, "Standard");
            t.storeRun({{config, dlStateFetched}, {t.packed("charts.so", "1.5.0"), dlStateFetched},
                        {t.packed("orders.so", "4.0.0"), dlStateFetched}});
        }, 3, "report standard.cfg 3.4.0, charts.so 1.5.0, orders.so 4.0.0", "", "charts.so orders.so",
           "charts.so orders.so | charts.so(old) updater.log(0 failed)"},
        refused("InstallFolderMissing", [](InstallFaults& t) { t.host->folders[1] = t.root.filePath("no/such"); }),
        refused("InstallFolderIsAFile", [](InstallFaults& t) { t.host->folders[1] = t.installDir + "/charts.so"; }),
        refused("InstallFolderPathTooLong",
                [](InstallFaults& t) { t.host->folders[1] = t.installDir + '/' + QString(1100, 'p'); }),
        InstallFault{"FolderWhereTheModuleInstalls",
                     [](InstallFaults& t) { QDir().mkpath(t.installDir + "/orders.so"); },
                     2, "", "orders.so:2 charts.so:3", "charts.so",
                     "charts.so orders.so | charts.so(old) updater.log(1 failed)"},
        // A new file needs no backup and goes in; a replaced one does not.
        InstallFault{"BackupFolderBlocked", [](InstallFaults& t) { writeText(t.downloaded("Backup"), "a file"); },
                     2, "", "charts.so:2 orders.so:3", "charts.so(old) orders.so", "charts.so orders.so | "},
        // The host names no folder for the type: the installation stops there.
        InstallFault{"HostNamesNoInstallFolder", [](InstallFaults& t) { t.host->folders[1] = QString(); },
                     -1, "", "charts.so:2 orders.so.gz:2", "charts.so(old)",
                     "charts.so orders.so.gz | updater.log(0 failed)"}),
    [](const ::testing::TestParamInfo<InstallFault>& info) { return std::string(info.param.name); });
