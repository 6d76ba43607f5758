// Handing files to the real updater program through the shared segment.
#include <cerrno>
#include <ctime>
#include <memory>
#include <vector>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QFileInfo>
#include <QRegularExpression>
#include <QSharedMemory>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "InstallTestSupport.h"
#include "update/UpdaterProtocol.h"
#include "update/UpdaterSession.h"

namespace {

const QString kUpdater = DM_UPDATER_PATH;
const QString kFailingUpdater = DM_FAILING_UPDATER_PATH;

// A key of its own for each session, so tests may run side by side.
QString uniqueKey()
{
    static int serial = 0;
    return QString("dm-install-test-%1-%2").arg(::getpid()).arg(++serial);
}

// The updater is a child of this test program; its exit status tells how
// it ended (0: it saw finished).
int exitStatusOf(int pid)
{
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

class HandOver : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(root.isValid());
        ASSERT_TRUE(QFileInfo(kUpdater).isExecutable()) << qPrintable(kUpdater);
        ASSERT_TRUE(QDir().mkpath(dest));
        for (const char* name : {"a.so", "b.so", "c.so"})
            ASSERT_TRUE(writeFile(download + "/" + name, QByteArray("new ") + name));
        ASSERT_TRUE(writeFile(dest + "/b.so", "old b.so"));
        ASSERT_TRUE(writeFile(dest + "/kept.so", "untouched"));
        hooks.served = [this](int index, int error) {
            served.push_back(index);
            errors.push_back(error);
        };
    }

    QVector<UpdaterRequest> threeFiles() const
    {
        return {{download + "/a.so", dest, false}, {download + "/b.so", dest, false}, {download + "/c.so", dest, false}};
    }

    // Runs a hand-over with the hooks, under a key of its own unless the
    // clock's key is wanted, and reaps the updater.
    CUpdaterSession::Result run(const QVector<UpdaterRequest>& requests, const QString& program = kUpdater,
                                bool clockKey = false)
    {
        CUpdaterSession session(program, backup, requests, hooks);
        running = &session;
        if (!clockKey)
            session.setKey(uniqueKey());
        const CUpdaterSession::Result result = session.run();
        running = nullptr;
        error = session.errorString();
        key = session.key();
        pid = session.updaterPid();
        exitStatus = pid > 0 ? exitStatusOf(pid) : -1;
        return result;
    }

    // Every file below the backup folder with the given name.
    QStringList backupsOf(const QString& name) const
    {
        QStringList found;
        for (const QString& file : filesBelow(backup))
            if (QFileInfo(file).fileName() == name)
                found << backup + "/" + file;
        return found;
    }

    QTemporaryDir root;
    QString download = root.filePath("download");
    QString dest = root.filePath("modules");
    QString backup = root.filePath("download/Backup");
    CUpdaterSession::Hooks hooks;
    CUpdaterSession* running = nullptr;  // during run(), for hooks that act on the session
    std::vector<int> served, errors;     // index and answer of each served request
    QString error, key;
    int pid = 0, exitStatus = -1;        // exitStatus 0: the updater saw finished
};

}  // namespace

TEST_F(HandOver, ThreeFilesOneAfterAnotherThenFinished)
{
    std::vector<QString> events;
    int minimum = -1, maximum = -1;
    hooks.range = [&](int low, int high) { minimum = low; maximum = high; };
    hooks.prepare = [&](int index, UpdaterRequest&) {
        // The previous file is in place before the next request is written.
        QString event = QString("write %1").arg(index);
        if (index > 0)
            event += QFile::exists(dest + "/" + QFileInfo(threeFiles()[index - 1].source).fileName())
                ? " after previous installed" : " BEFORE previous installed";
        events.push_back(event);
        return CUpdaterSession::Send;
    };
    hooks.served = [&](int index, int error) { events.push_back(QString("served %1 error %2").arg(index).arg(error)); };

    ASSERT_EQ(CUpdaterSession::Finished, run(threeFiles())) << qPrintable(error);
    EXPECT_EQ(0, exitStatus);
    const std::vector<QString> expected = {
        "write 0", "served 0 error 0", "write 1 after previous installed", "served 1 error 0",
        "write 2 after previous installed", "served 2 error 0"};
    EXPECT_EQ(expected, events);
    EXPECT_EQ(0, minimum);
    EXPECT_EQ(3, maximum);

    EXPECT_EQ(QStringList({"a.so", "b.so", "c.so", "kept.so"}), filesBelow(dest));
    for (const char* name : {"a.so", "b.so", "c.so"})
        EXPECT_EQ(QByteArray("new ") + name, fileContent(dest + "/" + name));
    EXPECT_EQ(QByteArray("untouched"), fileContent(dest + "/kept.so"));

    // Only the replaced file has a backup, and it holds the old content.
    const QStringList bBackups = backupsOf("b.so");
    ASSERT_EQ(1, bBackups.size());
    EXPECT_EQ(QByteArray("old b.so"), fileContent(bBackups[0]));
    EXPECT_TRUE(backupsOf("a.so").isEmpty());

    const QByteArray log = fileContent(backup + "/updater.log");
    EXPECT_TRUE(log.contains("ready on segment " + key.toLatin1()));
    EXPECT_EQ(3, log.count("installed "));
    EXPECT_TRUE(log.contains("finished after 3 requests"));
    // The segment went with the session.
    QSharedMemory probe(key);
    EXPECT_FALSE(probe.attach());
}

TEST_F(HandOver, TheDefaultKeyComesFromTheClockAndMovesOnWhenInUse)
{
    ASSERT_EQ(CUpdaterSession::Finished, run({{download + "/a.so", dest, false}}, kUpdater, true)) << qPrintable(error);
    EXPECT_TRUE(QRegularExpression("^org\\.velmora\\.sharedmemory-\\d{10}$").match(key).hasMatch())
        << qPrintable(key);
    EXPECT_EQ(0, exitStatus);
    EXPECT_EQ(QByteArray("new a.so"), fileContent(dest + "/a.so"));

    // Another hand-over started this second (and the next two, should the
    // clock tick meanwhile) holds its segment.
    const qint64 now = qint64(std::time(nullptr));
    std::vector<std::unique_ptr<QSharedMemory>> held;
    QStringList heldKeys;
    for (qint64 second = now; second <= now + 2; ++second) {
        held.push_back(std::make_unique<QSharedMemory>(updaterSegmentKey(second)));
        ASSERT_TRUE(held.back()->create(16)) << qPrintable(held.back()->errorString());
        heldKeys << updaterSegmentKey(second);
    }
    ASSERT_EQ(CUpdaterSession::Finished, run({{download + "/b.so", dest, false}}, kUpdater, true)) << qPrintable(error);
    EXPECT_FALSE(heldKeys.contains(key)) << qPrintable(key);
    EXPECT_EQ(QByteArray("new b.so"), fileContent(dest + "/b.so"));
}

TEST_F(HandOver, AConfigurationCopyRequestGoesIntoAFolderItMakes)
{
    ASSERT_TRUE(writeFile(root.filePath("config/Main.ini"), "[Main]\nname=1\n"));
    const QString configCopies = root.filePath("copies/Config");
    ASSERT_EQ(CUpdaterSession::Finished, run({{root.filePath("config/Main.ini"), configCopies, true}}))
        << qPrintable(error);
    EXPECT_EQ(0, exitStatus);
    EXPECT_EQ(QByteArray("[Main]\nname=1\n"), fileContent(configCopies + "/Main.ini"));
}

TEST_F(HandOver, AMissingUpdaterIsAClearFailureThatChangesNothing)
{
    const QStringList before = filesBelow(root.path());
    const QString absent = root.filePath("bin/updater");
    EXPECT_EQ(CUpdaterSession::ProgramMissing, run(threeFiles(), absent));
    EXPECT_TRUE(error.contains(absent)) << qPrintable(error);
    EXPECT_EQ(0, pid);
    EXPECT_EQ(before, filesBelow(root.path()));
    EXPECT_FALSE(QFileInfo::exists(backup));
    QSharedMemory probe(key);
    EXPECT_FALSE(probe.attach());
}

TEST_F(HandOver, AProgramThatNeverAnswersIsNotWaitedForForever)
{
    // /bin/true ends at once without ever marking itself ready.
    EXPECT_EQ(CUpdaterSession::UpdaterLost, run(threeFiles(), "/bin/true"));
    EXPECT_TRUE(error.contains("before it was ready")) << qPrintable(error);
    EXPECT_EQ(QByteArray("old b.so"), fileContent(dest + "/b.so"));
}

TEST_F(HandOver, AnUpdaterKilledMidRunDoesNotHangTheModule)
{
    hooks.prepare = [this](int index, UpdaterRequest&) {
        if (index == 1 && running->updaterPid() > 0)
            ::kill(running->updaterPid(), SIGKILL);
        return CUpdaterSession::Send;
    };
    EXPECT_EQ(CUpdaterSession::UpdaterLost, run(threeFiles()));
    EXPECT_TRUE(error.contains("b.so")) << qPrintable(error);
    EXPECT_EQ(128 + SIGKILL, exitStatus);
    EXPECT_EQ(std::vector<int>{0}, served);
    // The first file is in; the second was never touched.
    EXPECT_EQ(QStringList({"a.so", "b.so", "kept.so"}), filesBelow(dest));
    EXPECT_EQ(QByteArray("old b.so"), fileContent(dest + "/b.so"));
}

TEST_F(HandOver, StopTakesEffectBetweenFiles)
{
    hooks.served = [this](int index, int) {
        served.push_back(index);
        running->requestStop();
    };
    EXPECT_EQ(CUpdaterSession::Cancelled, run(threeFiles()));
    EXPECT_EQ(0, exitStatus);
    EXPECT_EQ(std::vector<int>{0}, served);
    EXPECT_EQ(QStringList({"a.so", "b.so", "kept.so"}), filesBelow(dest));
    EXPECT_EQ(QByteArray("old b.so"), fileContent(dest + "/b.so"));
}

TEST_F(HandOver, PrepareMaySkipAFileOrFailTheWholeHandOver)
{
    hooks.prepare = [](int index, UpdaterRequest&) {
        return index == 1 ? CUpdaterSession::Skip : CUpdaterSession::Send;
    };
    ASSERT_EQ(CUpdaterSession::Finished, run(threeFiles()));
    EXPECT_EQ(0, exitStatus);
    EXPECT_EQ(std::vector<int>({0, 2}), served);
    EXPECT_EQ(QByteArray("old b.so"), fileContent(dest + "/b.so"));
    EXPECT_EQ(QByteArray("new c.so"), fileContent(dest + "/c.so"));

    served.clear();
    hooks.prepare = [](int index, UpdaterRequest& request) {
        request.source.replace("a.so", "c.so");  // a request may be changed, too
        return index == 1 ? CUpdaterSession::Fail : CUpdaterSession::Send;
    };
    ASSERT_TRUE(writeFile(download + "/c.so", "newer c.so"));
    EXPECT_EQ(CUpdaterSession::RequestFailed, run(threeFiles()));
    EXPECT_EQ(0, exitStatus);  // told to finish
    EXPECT_EQ(std::vector<int>{0}, served);
    EXPECT_EQ(QByteArray("newer c.so"), fileContent(dest + "/c.so"));
}

TEST_F(HandOver, BadRequestsAreAnsweredWithAnErrorAndLoseNothing)
{
    const QString tooLong = download + "/" + QString(1100, 'p');
    ASSERT_EQ(CUpdaterSession::Finished, run({{download + "/a.so", root.filePath("no/such/folder"), false},
                                              {tooLong, dest, false},
                                              {download + "/absent.so", dest, false},
                                              {download + "/b.so", dest, false}}));
    EXPECT_EQ(0, exitStatus);
    // The long path was cut to 1024 units: a name over 255 bytes.
    EXPECT_EQ(std::vector<int>({ENOENT, ENAMETOOLONG, ENOENT, 0}), errors);
    EXPECT_FALSE(QFileInfo::exists(root.filePath("no")));
    EXPECT_EQ(QStringList({"b.so", "kept.so"}), filesBelow(dest));
    ASSERT_EQ(1, backupsOf("b.so").size());
    EXPECT_EQ(QByteArray("old b.so"), fileContent(backupsOf("b.so")[0]));
    EXPECT_EQ(3, fileContent(backup + "/updater.log").count("failed: "));
}

TEST_F(HandOver, AnUpdaterThatFailsEveryFileChangesNothing)
{
    ASSERT_TRUE(QFileInfo(kFailingUpdater).isExecutable()) << qPrintable(kFailingUpdater);
    const QStringList before = filesBelow(root.path());
    ASSERT_EQ(CUpdaterSession::Finished, run(threeFiles(), kFailingUpdater));
    EXPECT_EQ(0, exitStatus);
    EXPECT_EQ(std::vector<int>({EIO, EIO, EIO}), errors);
    EXPECT_EQ(before, filesBelow(root.path()));
    EXPECT_EQ(QByteArray("old b.so"), fileContent(dest + "/b.so"));
}
