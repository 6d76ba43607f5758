// Whole updates as a terminal lives them: the built module-host loads the
// module library, the module fetches the sample update server's lists and
// files from a real web server (each family in turn), directly or through an
// authenticating proxy (each family in turn, nginx behind it), and the real
// updater program replaces the files of a sandbox copy of the sample
// installed tree. Every check is about what ends up on disk, in the servers'
// logs and in what the host printed.
#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QUrl>
#include <gtest/gtest.h>

#include <zlib.h>

#include <memory>

#include "hostprog/ModuleHostRun.h"
#include "transfer/support/WaitFor.h"

namespace {

using FileTree = QMap<QString, QByteArray>;

const QString kSamples = QStringLiteral(DM_SOURCE_DIR "/examples");

// Every file under root by its relative path, with its bytes.
FileTree readTree(const QString& root)
{
    FileTree tree;
    QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        tree.insert(QDir(root).relativeFilePath(path), readFile(path));
    }
    return tree;
}

bool copyTree(const QString& from, const QString& to)
{
    QDirIterator it(from, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    bool copied = QDir().mkpath(to);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString target = to + QLatin1Char('/') + QDir(from).relativeFilePath(path);
        copied = QDir().mkpath(QFileInfo(target).path()) && QFile::copy(path, target) && copied;
    }
    return copied;
}

// The sample release's module: what an installed file must be after its
// update, byte for byte.
QByteArray releaseModule(const QString& name)
{
    return readFile(kSamples + QStringLiteral("/release/modules/") + name);
}

// Bytes that do not compress, so that their gzip file is as large as they are.
QByteArray noiseBytes(int size, quint32 seed)
{
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i) {
        seed ^= seed << 13;
        seed ^= seed >> 17;
        seed ^= seed << 5;
        bytes[i] = char(seed);
    }
    return bytes;
}

QByteArray gzipped(const QByteArray& bytes)
{
    z_stream stream{};
    // 16 + 15 window bits: a gzip wrapper rather than a zlib one.
    deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, 16 + 15, 8, Z_DEFAULT_STRATEGY);
    QByteArray out(int(deflateBound(&stream, uLong(bytes.size()))), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.constData()));
    stream.avail_in = uInt(bytes.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = uInt(out.size());
    const int result = deflate(&stream, Z_FINISH);
    out.resize(result == Z_STREAM_END ? int(stream.total_out) : 0);
    deflateEnd(&stream);
    return out;
}

struct WholeRun : HostRun {
    QString log;  // the module's log lines, as the host wrote them
    QString transcript() const { return out + err + QStringLiteral("\n--- module log ---\n") + log; }
};

// The automatic run's sample: the terminal's older installed tree against the
// server's newer configuration and modules. Installed path -> release module.
const QMap<QString, QString> kUpdatedByAutomaticRun = {
    {"bin/core.so", "core.so"},       {"bin/quotes.so", "quotes.so"},
    {"bin/charts.so", "charts.so"},   {"bin/orders.so", "orders.so"},
    {"plugins/scanner.so", "scanner.so"}, {"share/export.so", "export.so"},
    {"help/themes.pak", "themes.pak"}, {"share/fonts.pak", "fonts.pak"},
};

// Files in the installed tree before the run that an update replaces.
const QStringList kReplacedByAutomaticRun = {"bin/core.so", "bin/quotes.so", "bin/charts.so",
                                             "plugins/scanner.so", "help/themes.pak"};

class WholeRunTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid()) << "no temporary folder";
        ASSERT_TRUE(QFileInfo(QStringLiteral(DM_MODULE_HOST)).isExecutable())
            << "module-host is missing: " DM_MODULE_HOST;
        ASSERT_TRUE(QFileInfo(QStringLiteral(DM_UPDATER)).isExecutable())
            << "the updater is missing: " DM_UPDATER;
        installedDir = dir.filePath(QStringLiteral("host-run/installed"));
        downloadDir = dir.filePath(QStringLiteral("host-run/download"));
        ASSERT_TRUE(copyTree(kSamples + QStringLiteral("/installed"), installedDir))
            << "copying the sample installed tree failed";
        installedBefore = readTree(installedDir);
        ASSERT_FALSE(installedBefore.isEmpty()) << "the sample installed tree is empty";
        serverRoot = kSamples + QStringLiteral("/server");
        writeProfile({});
        // Until a server is started the settings name a port nobody listens on.
        writeSettings("http://127.0.0.1:9");
    }

    // A copy of the sample server tree the test may change.
    void useServerCopy()
    {
        serverRoot = dir.filePath(QStringLiteral("server"));
        ASSERT_TRUE(copyTree(kSamples + QStringLiteral("/server"), serverRoot))
            << "copying the sample server tree failed";
    }

    // With slowPath, that file is served at bytesPerSecond.
    void startServer(const FileServerFamily& family, const QString& slowPath = QString(), int bytesPerSecond = 0)
    {
        server = family.make(serverRoot, slowPath, bytesPerSecond);
        ASSERT_TRUE(server->started()) << family.name << " did not start:\n" << qPrintable(server->log());
        writeSettings(server->baseUrl().toLatin1());
    }

    void writeSettings(const QByteArray& url)
    {
        QDir().mkpath(dir.filePath(QStringLiteral("host-run/config")));
        writeText(dir.filePath(QStringLiteral("host-run/config/download.cfg")),
                  "[Address]\r\nPath=" + url + "\r\n");
    }

    // The sample profile, with some of its keys replaced.
    void writeProfile(const QJsonObject& changes)
    {
        QJsonObject profile = QJsonDocument::fromJson(readFile(kSamples + QStringLiteral("/host-profile.json"))).object();
        ASSERT_FALSE(profile.isEmpty()) << "the sample profile does not read";
        for (auto it = changes.begin(); it != changes.end(); ++it)
            profile.insert(it.key(), it.value());
        profilePath = dir.filePath(QStringLiteral("host-profile.json"));
        writeText(profilePath, QJsonDocument(profile).toJson());
    }

    void switchOnAutomaticRun() { writeAutomaticStart(downloadDir, true); }

    // quotes.so made large and of noise, so that its gzip file is as large,
    // and served slowly, so that a test can act while it is half way.
    // bigQuotes is the module the run must install.
    void serveALargeQuotesSlowly(const FileServerFamily& family, quint32 seed, QByteArray& bigQuotes)
    {
        ASSERT_NO_FATAL_FAILURE(useServerCopy());
        bigQuotes = "quotes.so 2.1.0\n" + noiseBytes(1536 * 1024, seed);
        const QByteArray bigQuotesGz = gzipped(bigQuotes);
        bigQuotesGzSize = bigQuotesGz.size();
        ASSERT_GT(bigQuotesGzSize, 1024 * 1024);
        writeText(serverRoot + QStringLiteral("/files/quotes.so.gz"), bigQuotesGz);
        // The module list names the file by its size and SHA-256: the new
        // file's, as its publisher would write them.
        const QString listPath = serverRoot + QStringLiteral("/lists/Standard.modules.txt");
        QList<QByteArray> lines = readFile(listPath).split('\n');
        for (QByteArray& line : lines) {
            QList<QByteArray> fields = line.split(',');
            if (fields.size() == 9 && fields[0] == "quotes.so") {
                fields[7] = QByteArray::number((bigQuotesGzSize + 1023) / 1024);
                fields[8] = QCryptographicHash::hash(bigQuotesGz, QCryptographicHash::Sha256).toHex();
                line = fields.join(',');
            }
        }
        writeText(listPath, lines.join('\n'));
        ASSERT_NO_FATAL_FAILURE(startServer(family, QStringLiteral("/files/quotes.so.gz"), 256 * 1024));
        switchOnAutomaticRun();
    }

    // Waits until quotes.so.gz, fetched after core.so.gz, has begun to arrive.
    bool quotesHalfWay(QProcess& host)
    {
        return waitFor([&] {
            host.readAll();
            return QFileInfo(downloadDir + QStringLiteral("/quotes.so.gz")).size() > 4096
                && requestedPaths().contains(QStringLiteral("/files/core.so.gz"));
        });
    }

    // The release's modules, with quotes.so as the test made it.
    static FileTree releaseWithQuotes(const QByteArray& quotes)
    {
        FileTree updated;
        for (auto it = kUpdatedByAutomaticRun.begin(); it != kUpdatedByAutomaticRun.end(); ++it)
            updated.insert(it.key(), releaseModule(it.value()));
        updated.insert(QStringLiteral("bin/quotes.so"), quotes);
        return updated;
    }

    // Runs module-host on the script to its end; module arguments follow the
    // profile. The host's own script time limit ends a run that hangs.
    void runHost(const QByteArray& script, WholeRun& result, const QStringList& moduleArguments = {})
    {
        static_cast<HostRun&>(result) = runModuleHost(hostArguments(script, moduleArguments), hostEnvironment());
        result.log = QString::fromUtf8(readFile(dir.filePath(QStringLiteral("host.log"))));
        ASSERT_NE(result.exitCode, -1) << "module-host did not start or crashed\n"
                                       << qPrintable(result.transcript());
    }

    void startHost(QProcess& process, const QByteArray& script)
    {
        process.setProcessChannelMode(QProcess::MergedChannels);
        ASSERT_TRUE(startModuleHost(process, hostArguments(script, {}), hostEnvironment()))
            << "module-host did not start: " << process.errorString().toStdString();
    }

    QStringList hostArguments(const QByteArray& script, const QStringList& moduleArguments)
    {
        const QString scriptPath = dir.filePath(QStringLiteral("script.txt"));
        const QString logPath = dir.filePath(QStringLiteral("host.log"));
        QFile::remove(logPath);
        writeText(scriptPath, script);
        return QStringList{QStringLiteral("--headless"), QStringLiteral("--script-timeout"),
                           QStringLiteral("120"), QStringLiteral("--log"), logPath,
                           QStringLiteral("--script"), scriptPath, profilePath}
            + moduleArguments;
    }

    static QProcessEnvironment hostEnvironment()
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("VELMORA_UPDATER"), QStringLiteral(DM_UPDATER));
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        return environment;
    }

    // Paths the server was asked for, in order.
    QStringList requestedPaths() const { return pathsOf(server->accessLog()); }

    static QStringList pathsOf(const QStringList& accessLog)
    {
        QStringList paths;
        for (const QString& line : accessLog)
            paths << QUrl(line.section(QLatin1Char('|'), 0, 0).section(' ', 1, 1)).path();
        return paths;
    }

    // The copy of a replaced installed file the updater keeps:
    // <download folder>/Backup/<run>/<absolute path of the installed file>.
    QStringList backupsOf(const QString& relative) const
    {
        const QString absolute = QFileInfo(installedDir + QLatin1Char('/') + relative).absoluteFilePath();
        QStringList found;
        const QDir backup(downloadDir + QStringLiteral("/Backup"));
        for (const QString& run : backup.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
            const QString candidate = backup.filePath(run) + absolute;
            if (QFile::exists(candidate))
                found << candidate;
        }
        return found;
    }

    void expectBackedUp(const QString& relative)
    {
        const QStringList backups = backupsOf(relative);
        ASSERT_EQ(backups.size(), 1) << qPrintable(relative) << " has no single backup under "
                                     << qPrintable(downloadDir + QStringLiteral("/Backup"));
        EXPECT_EQ(readFile(backups.first()), installedBefore.value(relative)) << qPrintable(relative);
    }

    // Every installed file: the updated ones equal the release's modules, all
    // others as they were.
    void expectInstalled(const QMap<QString, QString>& updated)
    {
        FileTree expected;
        for (auto it = updated.begin(); it != updated.end(); ++it)
            expected.insert(it.key(), releaseModule(it.value()));
        expectInstalledBytes(expected);
    }

    void expectInstalledBytes(const FileTree& updated)
    {
        const FileTree after = readTree(installedDir);
        for (auto it = updated.begin(); it != updated.end(); ++it) {
            ASSERT_TRUE(after.contains(it.key())) << qPrintable(it.key()) << " was not installed";
            EXPECT_TRUE(after.value(it.key()) == it.value())
                << qPrintable(it.key()) << " is not the server's file; it starts with: "
                << after.value(it.key()).left(24).constData();
        }
        for (auto it = installedBefore.begin(); it != installedBefore.end(); ++it) {
            if (!updated.contains(it.key())) {
                EXPECT_TRUE(after.value(it.key()) == it.value()) << qPrintable(it.key()) << " changed";
            }
        }
        QStringList unexpected;
        for (const QString& name : after.keys()) {
            if (!installedBefore.contains(name) && !updated.contains(name))
                unexpected << name;
        }
        EXPECT_EQ(unexpected, QStringList()) << "files nobody asked for";
    }

    QTemporaryDir dir;
    QString installedDir;
    QString downloadDir;
    QString serverRoot;
    QString profilePath;
    FileTree installedBefore;
    std::unique_ptr<FileServer> server;
    int bigQuotesGzSize = 0;
};

class OnEachServer : public WholeRunTest, public ::testing::WithParamInterface<FileServerFamily> {
protected:
    void startServer() { WholeRunTest::startServer(GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(Servers, OnEachServer, ::testing::ValuesIn(kFileServerFamilies),
                         [](const ::testing::TestParamInfo<FileServerFamily>& info) { return info.param.name; });

// The proxy passes requests on to the first server family, nginx.
class ThroughEachProxy : public WholeRunTest, public ::testing::WithParamInterface<ForwardProxyFamily> {};

INSTANTIATE_TEST_SUITE_P(Proxies, ThroughEachProxy, ::testing::ValuesIn(kForwardProxyFamilies),
                         [](const ::testing::TestParamInfo<ForwardProxyFamily>& info) { return info.param.name; });

const QByteArray kAutomaticScript = "answer yes\n"
                                    "wait-log Installation ended\n"
                                    "quit\n";

TEST_P(OnEachServer, AManualRunInstallsTheTwoTickedModulesAndKeepsTheOldOne)
{
    ASSERT_NO_FATAL_FAILURE(startServer());
    WholeRun run;
    ASSERT_NO_FATAL_FAILURE(runHost("answer yes\n"
                                    "open\n"
                                    "wait-lists\n"
                                    "tick charts.so\n"
                                    "tick orders.so\n"
                                    "press start\n"
                                    "wait-log Installation ended\n"
                                    "quit\n",
                                    run));
    ASSERT_EQ(run.exitCode, 0) << qPrintable(run.transcript());
    EXPECT_TRUE(run.log.contains(QStringLiteral("Download complete: 2 file(s) ready to install")))
        << qPrintable(run.log);
    EXPECT_TRUE(run.log.contains(QStringLiteral("Installation ended: 2"))) << qPrintable(run.log);

    expectInstalled({{"bin/charts.so", "charts.so"}, {"bin/orders.so", "orders.so"}});
    expectBackedUp(QStringLiteral("bin/charts.so"));
    // orders.so is new to the terminal: nothing was replaced, nothing kept.
    EXPECT_EQ(backupsOf(QStringLiteral("bin/orders.so")), QStringList());

    QStringList files = requestedPaths().filter(QRegularExpression(QStringLiteral("^/files/")));
    files.removeDuplicates();
    files.sort();
    EXPECT_EQ(files, QStringList({"/files/charts.so.gz", "/files/orders.so.gz"}));
}

// Through an authenticating proxy: with the wrong password every list is
// the proxy's 407 page, which the module reads as lists that offer nothing,
// so nothing reaches the server and nothing is installed; with the right one
// the automatic run brings the whole tree to the release.
TEST_P(ThroughEachProxy, OnlyTheRightCredentialsReachTheServerAndUpdate)
{
    ASSERT_NO_FATAL_FAILURE(startServer(kFileServerFamilies[0]));
    const std::unique_ptr<ForwardProxy> proxy = GetParam().make("u", "p", 0);
    ASSERT_TRUE(proxy->started()) << GetParam().name << " did not start:\n" << qPrintable(proxy->log());
    const auto useProxy = [&](const char* password) {
        writeProfile({{"proxy", QJsonObject{{"state", 1}, {"host", "127.0.0.1"}, {"port", int(proxy->port())},
                                            {"user", "u"}, {"password", password}}}});
    };

    ASSERT_NO_FATAL_FAILURE(useProxy("wrong"));
    WholeRun refused;
    ASSERT_NO_FATAL_FAILURE(runHost("open\n"
                                    "wait-lists\n"
                                    "print status\n"
                                    "quit\n",
                                    refused));
    ASSERT_EQ(refused.exitCode, 0) << qPrintable(refused.transcript());
    EXPECT_TRUE(refused.out.contains(QStringLiteral("status: New modules not found\n"))) << qPrintable(refused.out);
    EXPECT_EQ(server->accessLog(), QStringList());
    const QString origin = server->baseUrl();
    const QString list = origin + QStringLiteral("/configDesc.txt");
    EXPECT_TRUE(proxy->requestLog().contains(list)) << qPrintable(proxy->requestLog());
    // The proxy's own answer, where its log keeps it.
    const int answer = proxy->answerTo(list);
    if (answer != 0) {
        EXPECT_EQ(answer, 407) << qPrintable(proxy->requestLog());
    }
    expectInstalled({});

    ASSERT_NO_FATAL_FAILURE(useProxy("p"));
    switchOnAutomaticRun();
    WholeRun run;
    ASSERT_NO_FATAL_FAILURE(runHost(kAutomaticScript, run));
    ASSERT_EQ(run.exitCode, 0) << qPrintable(run.transcript());
    EXPECT_TRUE(run.log.contains(QStringLiteral("Installation ended: 8"))) << qPrintable(run.log);
    expectInstalled(kUpdatedByAutomaticRun);

    // The proxy forwarded the lists and every file, and the server saw them come.
    const QString proxyLog = proxy->requestLog();
    for (const char* path : {"/configDesc.txt", "/moduleDesc.txt", "/files/core.so.gz", "/files/fonts.pak.gz"})
        EXPECT_TRUE(proxyLog.contains(origin + QLatin1String(path))) << path << "\n" << qPrintable(proxyLog);
    EXPECT_TRUE(requestedPaths().contains(QStringLiteral("/files/core.so.gz")));
}

TEST_P(OnEachServer, FilesMissingOnTheServerEndTheRunInTheErrorBoxWithNothingInstalled)
{
    ASSERT_NO_FATAL_FAILURE(useServerCopy());
    for (const char* name : {"charts.so.gz", "export.so.gz", "themes.pak.gz"})
        ASSERT_TRUE(QFile::remove(serverRoot + QStringLiteral("/files/") + name)) << name;
    ASSERT_NO_FATAL_FAILURE(startServer());
    switchOnAutomaticRun();
    WholeRun run;
    // A missing file makes the automatic run search and ask again; the
    // fourth failed attempt in a row ends it with the error box.
    ASSERT_NO_FATAL_FAILURE(runHost("answer yes\n"
                                    "wait-box\n"
                                    "wait-box\n"
                                    "wait-box\n"
                                    "wait-box\n"
                                    "wait-box\n"
                                    "quit\n",
                                    run));
    ASSERT_EQ(run.exitCode, 0) << qPrintable(run.transcript());
    const QString question = QStringLiteral("box: Updates found | Download new version?");
    EXPECT_EQ(run.boxes(),
              QStringList({question, question, question, question,
                           QStringLiteral("box: Download error. | File(s) was not found on "
                                          "download server.\\r\\nPlease contact to support.")}))
        << qPrintable(run.out);

    EXPECT_FALSE(run.log.contains(QStringLiteral("Download complete"))) << qPrintable(run.log);
    EXPECT_FALSE(run.log.contains(QStringLiteral("Installation ended"))) << qPrintable(run.log);
    expectInstalled({});
    EXPECT_FALSE(QDir(downloadDir + QStringLiteral("/Backup")).exists());
    // Each attempt asked for the missing files again: the error is the
    // server's answer, not a run that gave up early.
    EXPECT_EQ(requestedPaths().count(QStringLiteral("/files/themes.pak.gz")), 4);
}

// Started off-line, the automatic run waits without a question or a request;
// once the host goes on-line it runs to its end and brings the whole tree to
// the release, keeping the replaced files and reporting what it installed.
TEST_P(OnEachServer, AnAutomaticRunWaitsWhileOffLineThenBringsTheWholeTreeToTheRelease)
{
    ASSERT_NO_FATAL_FAILURE(startServer());
    switchOnAutomaticRun();
    const QStringList offline{QStringLiteral("/OFFLINE")};

    WholeRun waiting;
    ASSERT_NO_FATAL_FAILURE(runHost("answer yes\n"
                                    "sleep 1500\n"
                                    "quit\n",
                                    waiting, offline));
    ASSERT_EQ(waiting.exitCode, 0) << qPrintable(waiting.transcript());
    EXPECT_EQ(server->accessLog(), QStringList());
    EXPECT_EQ(waiting.boxes(), QStringList());
    expectInstalled({});

    WholeRun run;
    ASSERT_NO_FATAL_FAILURE(runHost("answer yes\n"
                                    "sleep 500\n"
                                    "online 1\n"
                                    "wait-log Installation ended\n"
                                    "quit\n",
                                    run, offline));
    ASSERT_EQ(run.exitCode, 0) << qPrintable(run.transcript());
    EXPECT_TRUE(run.log.contains(QStringLiteral("Download complete: 8 file(s) ready to install")))
        << qPrintable(run.log);
    EXPECT_TRUE(run.log.contains(QStringLiteral("Installation ended: 8"))) << qPrintable(run.log);

    const QStringList boxes = run.boxes();
    ASSERT_EQ(boxes.size(), 2) << qPrintable(run.out);
    EXPECT_EQ(boxes[0], QStringLiteral("box: Updates found | Download new version?"));
    EXPECT_TRUE(boxes[1].startsWith(QStringLiteral("box: End updating | "))) << qPrintable(boxes[1]);
    EXPECT_TRUE(boxes[1].contains(QStringLiteral("scanner.so          ver: 1.1.0"))) << qPrintable(boxes[1]);

    expectInstalled(kUpdatedByAutomaticRun);
    for (const QString& replaced : kReplacedByAutomaticRun)
        expectBackedUp(replaced);
}

// The terminal dies (SIGKILL) while the second file of the automatic run is
// half way. Started again, the module continues the stored run: the file that
// had arrived is not fetched again, the half one is resumed where it stopped.
TEST_P(OnEachServer, AHostKilledMidDownloadContinuesTheStoredRunWhenStartedAgain)
{
    QByteArray bigQuotes;
    ASSERT_NO_FATAL_FAILURE(serveALargeQuotesSlowly(GetParam(), 0x2545F491u, bigQuotes));
    {
        QProcess host;
        ASSERT_NO_FATAL_FAILURE(startHost(host, "answer yes\nwait-log Installation ended\nquit\n"));
        ASSERT_TRUE(quotesHalfWay(host)) << "quotes.so.gz never began arriving after core.so.gz\n"
                                         << qPrintable(server->accessLog().join('\n'));
        host.kill();
        host.waitForFinished(-1);
    }
    const qint64 heldBytes = QFileInfo(downloadDir + QStringLiteral("/quotes.so.gz")).size();
    ASSERT_LT(heldBytes, bigQuotesGzSize) << "the kill came after the whole file had arrived";
    EXPECT_TRUE(readTree(installedDir) == installedBefore) << "installed before the kill";
    const int before = server->accessLog().size();

    WholeRun run;
    ASSERT_NO_FATAL_FAILURE(runHost(kAutomaticScript, run));
    ASSERT_EQ(run.exitCode, 0) << qPrintable(run.transcript());
    EXPECT_TRUE(run.log.contains(QStringLiteral("Installation ended: 8"))) << qPrintable(run.log);
    expectInstalledBytes(releaseWithQuotes(bigQuotes));
    expectBackedUp(QStringLiteral("bin/quotes.so"));

    // After the restart (the log also holds the killed host's cut requests):
    // core.so's body is not sent again, and quotes.so.gz is asked for from
    // the bytes already held.
    const QStringList after = server->accessLog().mid(before);
    qint64 coreBytesAgain = 0;
    QStringList quotesRanges;
    for (const QString& line : after) {
        const QString path = pathsOf({line}).value(0);
        if (path == QLatin1String("/files/core.so.gz"))
            coreBytesAgain += line.section(QLatin1Char('|'), 3, 3).toLongLong();
        if (path == QLatin1String("/files/quotes.so.gz"))
            quotesRanges << line.section(QLatin1Char('|'), 2, 2);
    }
    EXPECT_EQ(coreBytesAgain, 0) << qPrintable(after.join('\n'));
    // The last 256 bytes held are dropped as a possibly torn tail.
    EXPECT_TRUE(quotesRanges.contains(QStringLiteral("bytes=%1-").arg(heldBytes - 256)))
        << "held " << heldBytes << "\n" << qPrintable(after.join('\n'));
}

// The server goes away in the middle of a file and comes back: the client
// tries again after its pause (20 s, so this test takes that long) and
// resumes the file; the run ends installed as if nothing had happened.
TEST_P(OnEachServer, AServerStoppedMidFileIsTriedAgainAndTheFileResumed)
{
    QByteArray bigQuotes;
    ASSERT_NO_FATAL_FAILURE(serveALargeQuotesSlowly(GetParam(), 0x9E3779B9u, bigQuotes));
    QProcess host;
    ASSERT_NO_FATAL_FAILURE(startHost(host, kAutomaticScript));
    ASSERT_TRUE(quotesHalfWay(host)) << "quotes.so.gz never began arriving after core.so.gz\n"
                                     << qPrintable(server->accessLog().join('\n'));
    server->stop();
    const int before = server->accessLog().size();
    ASSERT_TRUE(server->start()) << GetParam().name << " did not start again:\n" << qPrintable(server->log());

    ASSERT_TRUE(host.waitForFinished(-1));
    const QString out = QString::fromUtf8(host.readAll());
    const QString log = QString::fromUtf8(readFile(dir.filePath(QStringLiteral("host.log"))));
    ASSERT_EQ(host.exitStatus(), QProcess::NormalExit) << qPrintable(out);
    ASSERT_EQ(host.exitCode(), 0) << qPrintable(out + log);
    EXPECT_TRUE(log.contains(QStringLiteral("Installation ended: 8"))) << qPrintable(log);
    expectInstalledBytes(releaseWithQuotes(bigQuotes));

    // The second server saw quotes.so.gz asked for from an offset, never
    // from the start, and core.so.gz not at all.
    const QStringList after = server->accessLog().mid(before);
    QStringList quotesRanges;
    for (const QString& line : after) {
        if (pathsOf({line}).value(0) == QLatin1String("/files/quotes.so.gz"))
            quotesRanges << line.section(QLatin1Char('|'), 2, 2);
    }
    EXPECT_FALSE(pathsOf(after).contains(QStringLiteral("/files/core.so.gz"))) << qPrintable(after.join('\n'));
    ASSERT_FALSE(quotesRanges.isEmpty()) << qPrintable(after.join('\n'));
    for (const QString& range : quotesRanges) {
        EXPECT_TRUE(range.startsWith(QLatin1String("bytes=")) && range.mid(6).chopped(1).toLongLong() > 4096 - 256)
            << qPrintable(range);
    }
}

}  // namespace
