// Whole updates as a terminal lives them: the built module-host loads the
// module library, the module fetches the sample update server's lists and
// files from a real web server (each family in turn), directly or through an
// authenticating proxy (each family in turn, nginx behind it), and the real
// updater program replaces the files of a sandbox copy of the sample
// installed tree. Every check is about what ends up on disk, in the servers'
// logs and in what the host printed.
#include <QProcess>
#include <QRegularExpression>
#include <gtest/gtest.h>

#include "WholeRunFixture.h"

namespace {

// Files in the installed tree before the run that an update replaces.
const QStringList kReplacedByAutomaticRun = {"bin/core.so", "bin/quotes.so", "bin/charts.so",
                                             "plugins/scanner.so", "help/themes.pak"};

class WholeRunTest : public WholeRunFixture {
protected:
    void switchOnAutomaticRun() { writeAutomaticStart(downloadDir, true); }

    // One field ('|'-separated: 2 the Range, 3 the body bytes) of each
    // request for path in the server's log from entry `from` on.
    QStringList fieldOf(const char* path, int field, int from) const
    {
        QStringList values;
        for (const QString& line : server->accessLog().mid(from))
            if (pathOf(line) == QLatin1String(path))
                values << line.section('|', field, field);
        return values;
    }

    // The copy of a replaced installed file the updater keeps:
    // <download folder>/Backup/<run>/<absolute path of the installed file>.
    QStringList backupsOf(const QString& relative) const
    {
        const QString absolute = QFileInfo(installedDir + '/' + relative).absoluteFilePath();
        QStringList found;
        const QDir backup(downloadDir + "/Backup");
        for (const QString& run : backup.entryList(QDir::Dirs | QDir::NoDotAndDotDot))
            if (QFile::exists(backup.filePath(run) + absolute))
                found << backup.filePath(run) + absolute;
        return found;
    }

    void expectBackedUp(const QString& relative)
    {
        const QStringList backups = backupsOf(relative);
        ASSERT_EQ(backups.size(), 1) << qPrintable(relative) << " has no single backup";
        EXPECT_EQ(readFile(backups.first()), installedBefore.value(relative)) << qPrintable(relative);
    }
};

class OnEachServer : public WholeRunTest, public ::testing::WithParamInterface<FileServerFamily> {};
INSTANTIATE_TEST_SUITE_P(Servers, OnEachServer, ::testing::ValuesIn(kFileServerFamilies), ByFamilyName());

// The proxy passes requests on to the first server family, nginx.
class ThroughEachProxy : public WholeRunTest, public ::testing::WithParamInterface<ForwardProxyFamily> {};
INSTANTIATE_TEST_SUITE_P(Proxies, ThroughEachProxy, ::testing::ValuesIn(kForwardProxyFamilies), ByFamilyName());

TEST_P(OnEachServer, AManualRunInstallsTheTwoTickedModulesAndKeepsTheOldOne)
{
    ASSERT_NO_FATAL_FAILURE(startServer(GetParam()));
    WholeRun run;
    ASSERT_NO_FATAL_FAILURE(runHost("answer yes\nopen\nwait-lists\ntick charts.so\ntick orders.so\n"
                                    "press start\nwait-log Installation ended\nquit\n",
                                    run));
    ASSERT_EQ(run.exitCode, 0) << qPrintable(run.transcript());
    EXPECT_TRUE(run.log.contains("Download complete: 2 file(s) ready to install")) << qPrintable(run.log);
    EXPECT_TRUE(run.log.contains("Installation ended: 2")) << qPrintable(run.log);

    expectInstalled(releaseFiles({{"bin/charts.so", "charts.so"}, {"bin/orders.so", "orders.so"}}));
    expectBackedUp("bin/charts.so");
    // orders.so is new to the terminal: nothing was replaced, nothing kept.
    EXPECT_EQ(backupsOf("bin/orders.so"), QStringList());

    QStringList files = requestedPaths().filter(QRegularExpression("^/files/"));
    files.removeDuplicates();
    files.sort();
    EXPECT_EQ(files, QStringList({"/files/charts.so.gz", "/files/orders.so.gz"}));
}

// Through an authenticating proxy: with the wrong password every list is
// the proxy's 407 page, which the module reads as lists that offer nothing,
// so nothing reaches the server and nothing is installed; with the right one
// the automatic run brings the whole tree to the release, keeping the
// replaced files and reporting what it installed.
TEST_P(ThroughEachProxy, OnlyTheRightCredentialsReachTheServerAndUpdate)
{
    ASSERT_NO_FATAL_FAILURE(startServer());
    const std::unique_ptr<ForwardProxy> proxy = GetParam().make(0);
    ASSERT_TRUE(proxy->started()) << GetParam().name << " did not start:\n" << qPrintable(proxy->log());
    const auto useProxy = [&](const char* password) {
        writeProfile({{"proxy", QJsonObject{{"state", 1}, {"host", "127.0.0.1"}, {"port", int(proxy->port())},
                                            {"user", "user"}, {"password", password}}}});
    };

    ASSERT_NO_FATAL_FAILURE(useProxy("wrong"));
    WholeRun refused;
    ASSERT_NO_FATAL_FAILURE(runHost("open\nwait-lists\nprint status\nquit\n", refused));
    ASSERT_EQ(refused.exitCode, 0) << qPrintable(refused.transcript());
    EXPECT_TRUE(refused.out.contains("status: New modules not found\n")) << qPrintable(refused.out);
    EXPECT_EQ(server->accessLog(), QStringList());
    const QString origin = server->baseUrl();
    EXPECT_TRUE(proxy->requestLog().contains(origin + "/configDesc.txt")) << qPrintable(proxy->requestLog());
    expectInstalled({});

    ASSERT_NO_FATAL_FAILURE(useProxy("secret"));
    switchOnAutomaticRun();
    WholeRun run;
    ASSERT_NO_FATAL_FAILURE(runHost(kAutomaticScript, run));
    ASSERT_EQ(run.exitCode, 0) << qPrintable(run.transcript());
    EXPECT_TRUE(run.log.contains("Download complete: 8 file(s) ready to install")) << qPrintable(run.log);
    EXPECT_TRUE(run.log.contains("Installation ended: 8")) << qPrintable(run.log);
    const QStringList boxes = run.boxes();
    ASSERT_EQ(boxes.size(), 2) << qPrintable(run.out);
    EXPECT_EQ(boxes[0], "box: Updates found | Download new version?");
    EXPECT_TRUE(boxes[1].startsWith("box: End updating | ")) << qPrintable(boxes[1]);
    EXPECT_TRUE(boxes[1].contains("scanner.so          ver: 1.1.0")) << qPrintable(boxes[1]);
    expectInstalled(releaseFiles(kUpdatedByAutomaticRun));
    for (const QString& replaced : kReplacedByAutomaticRun)
        expectBackedUp(replaced);

    // The proxy forwarded the lists and every file, and the server saw them come.
    const QString proxyLog = proxy->requestLog();
    for (const char* path : {"/configDesc.txt", "/moduleDesc.txt", "/files/core.so.gz", "/files/fonts.pak.gz"})
        EXPECT_TRUE(proxyLog.contains(origin + path)) << path << "\n" << qPrintable(proxyLog);
    EXPECT_TRUE(requestedPaths().contains("/files/core.so.gz"));
}

TEST_P(OnEachServer, FilesMissingOnTheServerEndTheRunInTheErrorBoxWithNothingInstalled)
{
    ASSERT_NO_FATAL_FAILURE(useServerCopy());
    for (const char* name : {"charts.so.gz", "export.so.gz", "themes.pak.gz"})
        ASSERT_TRUE(QFile::remove(serverRoot + "/files/" + name)) << name;
    ASSERT_NO_FATAL_FAILURE(startServer(GetParam()));
    switchOnAutomaticRun();
    WholeRun run;
    // A missing file makes the automatic run search and ask again; the
    // fourth failed attempt in a row ends it with the error box.
    ASSERT_NO_FATAL_FAILURE(runHost("answer yes\n" + QByteArray("wait-box\n").repeated(5) + "quit\n", run));
    ASSERT_EQ(run.exitCode, 0) << qPrintable(run.transcript());
    const QString question = "box: Updates found | Download new version?";
    EXPECT_EQ(run.boxes(), QStringList({question, question, question, question,
                                        "box: Download error. | File(s) was not found on "
                                        "download server.\\r\\nPlease contact to support."}))
        << qPrintable(run.out);

    EXPECT_FALSE(run.log.contains("Download complete")) << qPrintable(run.log);
    EXPECT_FALSE(run.log.contains("Installation ended")) << qPrintable(run.log);
    expectInstalled({});
    EXPECT_FALSE(QDir(downloadDir + "/Backup").exists());
    // Each attempt asked for the missing files again: the error is the
    // server's answer, not a run that gave up early.
    EXPECT_EQ(requestedPaths().count("/files/themes.pak.gz"), 4);
}

// The terminal dies (SIGKILL) while the second file of the automatic run is
// half way. Started again, the module continues the stored run: the file that
// had arrived is not fetched again, the half one is resumed where it stopped.
TEST_P(OnEachServer, AHostKilledMidDownloadContinuesTheStoredRunWhenStartedAgain)
{
    switchOnAutomaticRun();
    {
        QProcess host;
        ASSERT_NO_FATAL_FAILURE(startRunHalfWay(host, GetParam(), 1024));
        host.kill();
        host.waitForFinished(-1);
    }
    const qint64 heldBytes = QFileInfo(downloadDir + "/quotes.so.gz").size();
    ASSERT_LT(heldBytes, QFileInfo(serverRoot + "/files/quotes.so.gz").size()) << "the kill came after the whole file had arrived";
    EXPECT_TRUE(readTree(installedDir) == installedBefore) << "installed before the kill";
    const int before = server->accessLog().size();

    WholeRun run;
    ASSERT_NO_FATAL_FAILURE(runHost(kAutomaticScript, run));
    ASSERT_EQ(run.exitCode, 0) << qPrintable(run.transcript());
    EXPECT_TRUE(run.log.contains("Installation ended: 8")) << qPrintable(run.log);
    expectInstalled(releaseFiles(kUpdatedByAutomaticRun));
    expectBackedUp("bin/quotes.so");

    // After the restart (the log also holds the killed host's cut requests):
    // core.so's body is not sent again, and quotes.so.gz is asked for from
    // the bytes already held, less the last 256 dropped as a possibly torn tail.
    const QString after = server->accessLog().mid(before).join('\n');
    qint64 coreBytesAgain = 0;
    for (const QString& bytes : fieldOf("/files/core.so.gz", 3, before))
        coreBytesAgain += bytes.toLongLong();
    EXPECT_EQ(coreBytesAgain, 0) << qPrintable(after);
    EXPECT_TRUE(fieldOf("/files/quotes.so.gz", 2, before).contains(QString("bytes=%1-").arg(heldBytes - 256)))
        << "held " << heldBytes << "\n" << qPrintable(after);
}

// The server goes away in the middle of a file and comes back: the client
// tries again after its pause (20 s, so this test takes that long) and
// resumes the file; the run ends installed as if nothing had happened.
TEST_P(OnEachServer, AServerStoppedMidFileIsTriedAgainAndTheFileResumed)
{
    switchOnAutomaticRun();
    QProcess host;
    ASSERT_NO_FATAL_FAILURE(startRunHalfWay(host, GetParam(), 1024));
    server->stop();
    const int before = server->accessLog().size();
    ASSERT_TRUE(server->start()) << GetParam().name << " did not start again:\n" << qPrintable(server->log());

    ASSERT_TRUE(host.waitForFinished(-1));
    const QString out = QString::fromUtf8(host.readAll()), log = hostLog();
    ASSERT_EQ(host.exitStatus(), QProcess::NormalExit) << qPrintable(out);
    ASSERT_EQ(host.exitCode(), 0) << qPrintable(out + log);
    EXPECT_TRUE(log.contains("Installation ended: 8")) << qPrintable(log);
    expectInstalled(releaseFiles(kUpdatedByAutomaticRun));

    // The second server saw quotes.so.gz asked for from an offset, never
    // from the start, and core.so.gz not at all.
    const QString after = server->accessLog().mid(before).join('\n');
    EXPECT_TRUE(fieldOf("/files/core.so.gz", 2, before).isEmpty()) << qPrintable(after);
    const QStringList quotesRanges = fieldOf("/files/quotes.so.gz", 2, before);
    ASSERT_FALSE(quotesRanges.isEmpty()) << qPrintable(after);
    for (const QString& range : quotesRanges)
        EXPECT_TRUE(range.startsWith("bytes=") && range.mid(6).chopped(1).toLongLong() > 4096 - 256)
            << qPrintable(range);
}

}  // namespace
