// Handing files to the real updater program through the shared segment.
#include <cerrno>
#include <ctime>
#include <memory>
#include <vector>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QFileInfo>
#include <QSharedMemory>
#include <QThread>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "transfer/support/FileHelpers.h"
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

class HandOver : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(root.isValid());
        ASSERT_TRUE(QFileInfo(kUpdater).isExecutable()) << qPrintable(kUpdater);
        ASSERT_TRUE(QDir().mkpath(dest));
        for (const char* name : {"a.so", "b.so", "c.so"})
            ASSERT_TRUE(writeText(download + "/" + name, QByteArray("new ") + name));
        ASSERT_TRUE(writeText(dest + "/b.so", "old b.so"));
        ASSERT_TRUE(writeText(dest + "/kept.so", "untouched"));
        hooks.served = [this](int index, int error) {
            served.push_back(index);
            errors.push_back(error);
        };
    }

    QVector<UpdaterRequest> threeFiles() const
    {
        return {{download + "/a.so", dest, false}, {download + "/b.so", dest, false},
                {download + "/c.so", dest, false}};
    }

    // Runs a hand-over with the hooks, under a key of its own unless the
    // clock's key is wanted, and reaps the updater (a child of this program;
    // exitStatus 0: it saw finished).
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
        const int pid = session.updaterPid();
        int status = 0;
        while (pid > 0 && ::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        exitStatus = pid <= 0 ? -1 : WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return result;
    }

    QTemporaryDir root;
    QString download = root.filePath("download");
    QString dest = root.filePath("modules");
    QString backup = root.filePath("download/Backup");
    CUpdaterSession::Hooks hooks;
    CUpdaterSession* running = nullptr;  // during run(), for hooks that act on the session
    std::vector<int> served, errors;     // index and answer of each served request
    QString error, key;
    int exitStatus = -1;
};

}  // namespace

// Files one after another, each in place before the next request is
// written, a configuration copy into a folder it makes, then finished; only
// the replaced file is backed up, and the segment goes with the session.
TEST_F(HandOver, FilesOneAfterAnotherAConfigurationCopyThenFinished)
{
    ASSERT_TRUE(writeText(root.filePath("config/Main.ini"), "[Main]\nname=1\n"));
    QVector<UpdaterRequest> requests = threeFiles();
    requests.append({"named by prepare", root.filePath("copies/Config"), true});
    QStringList events;
    hooks.range = [&](int low, int high) { events << QString("range %1-%2").arg(low).arg(high); };
    hooks.prepare = [&](int index, UpdaterRequest& request) {
        if (index == 3)
            request.source = root.filePath("config/Main.ini");  // a request may be changed
        int installed = 0;  // files of dest that hold their new content
        for (const QString& name : filesBelow(dest))
            installed += readFile(dest + "/" + name).startsWith("new ") ? 1 : 0;
        events << QString("write %1, %2 in place").arg(index).arg(installed);
        return CUpdaterSession::Send;
    };
    hooks.served = [&](int index, int error) { events << QString("served %1: %2").arg(index).arg(error); };

    ASSERT_EQ(CUpdaterSession::Finished, run(requests)) << qPrintable(error);
    EXPECT_EQ(0, exitStatus);
    EXPECT_EQ(QStringList({"range 0-4", "write 0, 0 in place", "served 0: 0", "write 1, 1 in place", "served 1: 0",
                           "write 2, 2 in place", "served 2: 0", "write 3, 3 in place", "served 3: 0"}),
              events);
    EXPECT_EQ(QStringList({"a.so", "b.so", "c.so", "kept.so"}), filesBelow(dest));
    for (const char* name : {"a.so", "b.so", "c.so"})
        EXPECT_EQ(QByteArray("new ") + name, readFile(dest + "/" + name));
    EXPECT_EQ(QByteArray("untouched"), readFile(dest + "/kept.so"));
    EXPECT_EQ(QByteArray("[Main]\nname=1\n"), readFile(root.filePath("copies/Config/Main.ini")));
    const QStringList backups = filesBelow(backup);  // the replaced file, then the updater's log
    ASSERT_EQ(QStringList({backups.value(0), "updater.log"}), backups);
    EXPECT_TRUE(backups[0].endsWith(dest + "/b.so")) << qPrintable(backups[0]);
    EXPECT_EQ(QByteArray("old b.so"), readFile(backup + "/" + backups[0]));
    QSharedMemory probe(key);
    EXPECT_FALSE(probe.attach());
}

// The key is made from the clock; when another hand-over started this
// second (and the next two, should the clock tick meanwhile) holds its
// segment, the key moves on.
TEST_F(HandOver, TheDefaultKeyComesFromTheClockAndMovesOnWhenInUse)
{
    // Hand-overs of tests running beside this one use the same clock keys: a
    // second one of them holds is tried again a second later.
    qint64 now = 0;
    std::vector<std::unique_ptr<QSharedMemory>> held;
    for (int attempt = 0; attempt < 10 && held.size() < 3; ++attempt) {
        held.clear();
        if (attempt > 0)
            QThread::sleep(1);
        now = qint64(std::time(nullptr));
        for (qint64 second = now; second <= now + 2 && held.size() == size_t(second - now); ++second) {
            held.push_back(std::make_unique<QSharedMemory>(updaterSegmentKey(second)));
            if (!held.back()->create(16))
                held.pop_back();
        }
    }
    ASSERT_EQ(3u, held.size()) << "the clock's keys stayed in use";
    ASSERT_EQ(CUpdaterSession::Finished, run({{download + "/b.so", dest, false}}, kUpdater, true)) << qPrintable(error);
    const qint64 second = key.mid(key.lastIndexOf('-') + 1).toLongLong();
    EXPECT_EQ(updaterSegmentKey(second), key);
    EXPECT_TRUE(second > now + 2 && second <= now + 3 + CUpdaterSession::kKeyAttempts) << qPrintable(key);
    EXPECT_EQ(QByteArray("new b.so"), readFile(dest + "/b.so"));
}

namespace {

// What happens during a hand-over of a.so, b.so and c.so.
enum Event { Nothing, KillAtSecond, StopAfterFirst, SkipSecond, FailSecond };

struct EarlyEnd {
    const char* name;
    const char* program;  // null: the updater
    Event event;
    CUpdaterSession::Result result;
    const char* errorText;  // in errorString(); null: no error
    std::vector<int> served;
    int exitStatus;  // 0: the updater saw finished; -1: none started
};

}  // namespace

class HandOverEnds : public HandOver, public ::testing::WithParamInterface<EarlyEnd> {};

// However a hand-over ends, the module does not hang, and the files it did
// not hand over (b.so, and c.so unless only b.so was skipped) stay as they were.
TEST_P(HandOverEnds, LeavesTheFilesItDidNotHandOverAsTheyWere)
{
    const EarlyEnd& c = GetParam();
    const QString program = c.program ? QString(c.program) : kUpdater;
    hooks.prepare = [this, &c](int index, UpdaterRequest&) {
        if (c.event == KillAtSecond && index == 1 && running->updaterPid() > 0)
            ::kill(running->updaterPid(), SIGKILL);
        if (index == 1 && (c.event == SkipSecond || c.event == FailSecond))
            return c.event == SkipSecond ? CUpdaterSession::Skip : CUpdaterSession::Fail;
        return CUpdaterSession::Send;
    };
    if (c.event == StopAfterFirst)
        hooks.served = [this](int index, int) {
            served.push_back(index);
            running->requestStop();
        };
    const QStringList before = filesBelow(root.path());

    EXPECT_EQ(c.result, run(threeFiles(), program));
    EXPECT_TRUE(c.errorText ? error.contains(c.errorText) : error.isEmpty()) << qPrintable(error);
    EXPECT_EQ(c.served, served);
    EXPECT_EQ(c.exitStatus, exitStatus);
    EXPECT_EQ(c.exitStatus >= 0, QFileInfo::exists(backup));  // made only for an updater that starts
    EXPECT_EQ(QByteArray("old b.so"), readFile(dest + "/b.so"));
    if (c.served.empty())
        EXPECT_EQ(before, filesBelow(root.path()));
    else
        EXPECT_EQ(c.served.size() == 2 ? QStringList({"a.so", "b.so", "c.so", "kept.so"})
                                       : QStringList({"a.so", "b.so", "kept.so"}),
                  filesBelow(dest));
    const char* const names[] = {"a.so", "b.so", "c.so"};
    for (int index : c.served)
        EXPECT_EQ(QByteArray("new ") + names[index], readFile(dest + "/" + names[index]));
}

INSTANTIATE_TEST_SUITE_P(
    Ways, HandOverEnds,
    ::testing::Values(
        // Looked for before anything is made or started.
        EarlyEnd{"ProgramMissing", "/nonexistent/bin/updater", Nothing, CUpdaterSession::ProgramMissing,
                 "/nonexistent/bin/updater", {}, -1},
        // Ends at once without ever marking itself ready.
        EarlyEnd{"NeverReady", "/bin/true", Nothing, CUpdaterSession::UpdaterLost, "before it was ready", {}, 0},
        EarlyEnd{"KilledMidRun", nullptr, KillAtSecond, CUpdaterSession::UpdaterLost, "b.so", {0}, 128 + SIGKILL},
        EarlyEnd{"StoppedBetweenFiles", nullptr, StopAfterFirst, CUpdaterSession::Cancelled, nullptr, {0}, 0},
        EarlyEnd{"SecondSkipped", nullptr, SkipSecond, CUpdaterSession::Finished, nullptr, {0, 2}, 0},
        // Told to finish.
        EarlyEnd{"SecondRefused", nullptr, FailSecond, CUpdaterSession::RequestFailed, "Request 1", {0}, 0}),
    [](const ::testing::TestParamInfo<EarlyEnd>& info) { return std::string(info.param.name); });

// Bad requests are answered with an error and lose nothing: a missing
// folder or source, a path cut to 1024 units (a name over 255 bytes); an
// updater that fails every file changes nothing.
TEST_F(HandOver, FailedRequestsAreAnsweredWithTheirErrorAndChangeNothing)
{
    ASSERT_EQ(CUpdaterSession::Finished, run({{download + "/a.so", root.filePath("no/such/folder"), false},
                                              {download + "/" + QString(1100, 'p'), dest, false},
                                              {download + "/absent.so", dest, false},
                                              {download + "/b.so", dest, false}}));
    EXPECT_EQ(0, exitStatus);
    EXPECT_EQ(std::vector<int>({ENOENT, ENAMETOOLONG, ENOENT, 0}), errors);
    EXPECT_FALSE(QFileInfo::exists(root.filePath("no")));
    EXPECT_EQ(QStringList({"b.so", "kept.so"}), filesBelow(dest));
    EXPECT_EQ(3, readFile(backup + "/updater.log").count("failed: "));

    ASSERT_TRUE(QFileInfo(kFailingUpdater).isExecutable()) << qPrintable(kFailingUpdater);
    const QStringList before = filesBelow(root.path());
    errors.clear();
    ASSERT_EQ(CUpdaterSession::Finished, run(threeFiles(), kFailingUpdater));
    EXPECT_EQ(0, exitStatus);
    EXPECT_EQ(std::vector<int>({EIO, EIO, EIO}), errors);
    EXPECT_EQ(before, filesBelow(root.path()));
}
