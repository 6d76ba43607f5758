// Whole automatic updates as a terminal lives them: the built module-host
// loads the module library, the module fetches the sample update server's
// lists and files from a real web server (each family in turn), directly or
// through an authenticating proxy (each family in turn, nginx behind it), and
// the real updater program replaces the files of a sandbox copy of the sample
// installed tree. Every check is about what ends up on disk, in the servers'
// logs and in what the host printed. A manual run's choice, fetch and
// installation are the workflow tests' (tests/update), in-process.
#include <gtest/gtest.h>

#include "WholeRunFixture.h"

namespace {

// Files in the installed tree before the run that an update replaces.
const QStringList kReplacedByAutomaticRun = {"bin/core.so", "bin/quotes.so", "bin/charts.so",
                                             "plugins/scanner.so", "help/themes.pak"};

class WholeRunTest : public WholeRunFixture {
protected:
    void switchOnAutomaticRun() { writeAutomaticStart(downloadDir, true); }

    // The updater keeps a replaced file once, under
    // <download folder>/Backup/<run>/<absolute path of the installed file>.
    void expectBackedUp(const QString& relative)
    {
        const QString absolute = QFileInfo(installedDir + '/' + relative).absoluteFilePath();
        QByteArrayList kept;
        const QDir backup(downloadDir + "/Backup");
        for (const QString& run : backup.entryList(QDir::Dirs | QDir::NoDotAndDotDot))
            if (QFile::exists(backup.filePath(run) + absolute))
                kept << readFile(backup.filePath(run) + absolute);
        EXPECT_EQ(kept, QByteArrayList{installedBefore.value(relative)}) << qPrintable(relative);
    }
};

class OnEachServer : public WholeRunTest, public ::testing::WithParamInterface<FileServerFamily> {};
INSTANTIATE_TEST_SUITE_P(Servers, OnEachServer, ::testing::ValuesIn(kFileServerFamilies), ByFamilyName());

// The proxy passes requests on to the first server family, nginx.
class ThroughEachProxy : public WholeRunTest, public ::testing::WithParamInterface<ForwardProxyFamily> {};
INSTANTIATE_TEST_SUITE_P(Proxies, ThroughEachProxy, ::testing::ValuesIn(kForwardProxyFamilies), ByFamilyName());

// Through an authenticating proxy named by the profile, the automatic run
// brings the whole tree to the release, keeping the replaced files and
// reporting what it installed. Refused credentials are the transfer tests'
// business, and the error page they bring is a list that offers nothing.
TEST_P(ThroughEachProxy, TheProfilesProxyCarriesAWholeAutomaticRun)
{
    ASSERT_NO_FATAL_FAILURE(startServer());
    const std::unique_ptr<ForwardProxy> proxy = GetParam().make(0);
    ASSERT_TRUE(proxy->started()) << GetParam().name << " did not start:\n" << qPrintable(proxy->log());
    ASSERT_NO_FATAL_FAILURE(writeProfile({{"proxy", QJsonObject{{"state", 1}, {"host", "127.0.0.1"},
                                                               {"port", int(proxy->port())}, {"user", "user"},
                                                               {"password", "secret"}}}}));
    switchOnAutomaticRun();
    WholeRun run;
    ASSERT_NO_FATAL_FAILURE(runHost(kAutomaticScript, run));
    ASSERT_EQ(run.exitCode, 0) << qPrintable(run.transcript());
    EXPECT_TRUE(run.log.contains("Installation ended: 8")) << qPrintable(run.log);
    const QStringList boxes = run.boxes();
    EXPECT_EQ(boxes.size(), 2) << qPrintable(run.out);
    EXPECT_EQ(boxes.value(0), "box: Updates found | Download new version?");
    EXPECT_TRUE(boxes.value(1).startsWith("box: End updating | ") && boxes[1].contains("scanner.so          ver: 1.1.0"))
        << qPrintable(run.out);
    expectInstalled(releaseFiles(kUpdatedByAutomaticRun));
    for (const QString& replaced : kReplacedByAutomaticRun)
        expectBackedUp(replaced);

    // The proxy forwarded the lists and every file, and the server saw them come.
    const QString proxyLog = proxy->requestLog(), origin = server->baseUrl();
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

// The server goes away in the middle of a file and comes back: the client
// tries again after its pause (20 s, so this test takes that long) and
// resumes the file from the bytes it holds, against each family's own
// answer to a range; the run ends installed as if nothing had happened.
TEST_P(OnEachServer, AServerStoppedMidFileIsTriedAgainAndTheFileResumed)
{
    switchOnAutomaticRun();
    QProcess host;
    ASSERT_NO_FATAL_FAILURE(startRunHalfWay(host, GetParam(), 1024));
    server->stop();
    const int before = server->accessLog().size();
    ASSERT_TRUE(server->start()) << GetParam().name << " did not start again:\n" << qPrintable(server->log());
    ASSERT_TRUE(host.waitForFinished(-1));
    const QString log = hostLog();
    ASSERT_EQ(host.exitCode(), 0) << qPrintable(QString::fromUtf8(host.readAll()) + log);
    EXPECT_TRUE(log.contains("Installation ended: 8")) << qPrintable(log);
    expectInstalled(releaseFiles(kUpdatedByAutomaticRun));
    // The second server is asked for quotes.so.gz from an offset only, and
    // for core.so.gz not at all.
    QStringList ranges;
    for (const QString& line : server->accessLog().mid(before)) {
        EXPECT_NE(pathOf(line), QStringLiteral("/files/core.so.gz"));
        if (pathOf(line) == QStringLiteral("/files/quotes.so.gz"))
            ranges << line.section('|', 2, 2);
    }
    ASSERT_FALSE(ranges.isEmpty());
    for (const QString& range : ranges)
        EXPECT_TRUE(range.startsWith("bytes=") && range.mid(6).chopped(1).toLongLong() > 4096 - 256)
            << qPrintable(range);
}

}  // namespace
