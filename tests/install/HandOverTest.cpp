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

const QString kUpdater = DM_BINARY_DIR "/updater/updater";
const QString kFailingUpdater = DM_BINARY_DIR "/tests/install/failing_updater";

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
    }

    QVector<UpdaterRequest> threeFiles() const
    {
        return {{download + "/a.so", dest, false}, {download + "/b.so", dest, false}, {download + "/c.so", dest, false}};
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
    std::vector<QString> events;
};

}  // namespace

TEST_F(HandOver, ThreeFilesOneAfterAnotherThenFinished)
{
    CUpdaterSession::Hooks hooks;
    int minimum = -1, maximum = -1;
    hooks.range = [&](int low, int high) { minimum = low; maximum = high; };
    hooks.prepare = [&](int index, UpdaterRequest&) {
        // The previous file is in place before the next request is written.
        QString event = QString("write %1").arg(index);
        if (index > 0)
            event += QFile::exists(threeFiles()[index - 1].destination + "/" + QFileInfo(threeFiles()[index - 1].source).fileName())
                ? " after previous installed" : " BEFORE previous installed";
        events.push_back(event);
        return CUpdaterSession::Send;
    };
    hooks.served = [&](int index, int error) { events.push_back(QString("served %1 error %2").arg(index).arg(error)); };

    CUpdaterSession session(kUpdater, backup, threeFiles(), hooks);
    session.setKey(uniqueKey());
    ASSERT_EQ(CUpdaterSession::Finished, session.run()) << qPrintable(session.errorString());
    EXPECT_EQ(0, exitStatusOf(session.updaterPid()));  // it saw finished

    const std::vector<QString> expected = {
        "write 0", "served 0 error 0", "write 1 after previous installed", "served 1 error 0",
        "write 2 after previous installed", "served 2 error 0"};
    EXPECT_EQ(expected, events);
    EXPECT_EQ(0, minimum);
    EXPECT_EQ(3, maximum);

    EXPECT_EQ(QStringList({"a.so", "b.so", "c.so", "kept.so"}), filesBelow(dest));
    EXPECT_EQ(QByteArray("new a.so"), fileContent(dest + "/a.so"));
    EXPECT_EQ(QByteArray("new b.so"), fileContent(dest + "/b.so"));
    EXPECT_EQ(QByteArray("new c.so"), fileContent(dest + "/c.so"));
    EXPECT_EQ(QByteArray("untouched"), fileContent(dest + "/kept.so"));

    // Only the replaced file has a backup, and it holds the old content.
    const QStringList bBackups = backupsOf("b.so");
    ASSERT_EQ(1, bBackups.size());
    EXPECT_EQ(QByteArray("old b.so"), fileContent(bBackups[0]));
    EXPECT_TRUE(backupsOf("a.so").isEmpty());

    const QByteArray log = fileContent(backup + "/updater.log");
    EXPECT_TRUE(log.contains("ready on segment " + session.key().toLatin1()));
    EXPECT_EQ(3, log.count("installed "));
    EXPECT_TRUE(log.contains("finished after 3 requests"));
    // The segment went with the session.
    QSharedMemory probe(session.key());
    EXPECT_FALSE(probe.attach());
}

TEST_F(HandOver, TheDefaultKeyComesFromTheClock)
{
    CUpdaterSession session(kUpdater, backup, {{download + "/a.so", dest, false}});
    ASSERT_EQ(CUpdaterSession::Finished, session.run()) << qPrintable(session.errorString());
    EXPECT_TRUE(QRegularExpression("^org\\.velmora\\.sharedmemory-\\d{10}$").match(session.key()).hasMatch())
        << qPrintable(session.key());
    EXPECT_EQ(0, exitStatusOf(session.updaterPid()));
    EXPECT_EQ(QByteArray("new a.so"), fileContent(dest + "/a.so"));
}

TEST_F(HandOver, AClockKeyInUseMovesOnToTheNextSeconds)
{
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
    CUpdaterSession session(kUpdater, backup, {{download + "/a.so", dest, false}});
    ASSERT_EQ(CUpdaterSession::Finished, session.run()) << qPrintable(session.errorString());
    EXPECT_FALSE(heldKeys.contains(session.key())) << qPrintable(session.key());
    EXPECT_EQ(QByteArray("new a.so"), fileContent(dest + "/a.so"));
}

TEST_F(HandOver, AConfigurationCopyRequestGoesIntoAFolderItMakes)
{
    ASSERT_TRUE(writeFile(root.filePath("config/Main.ini"), "[Main]\nname=1\n"));
    const QString configCopies = root.filePath("copies/Config");
    CUpdaterSession session(kUpdater, backup, {{root.filePath("config/Main.ini"), configCopies, true}});
    session.setKey(uniqueKey());
    ASSERT_EQ(CUpdaterSession::Finished, session.run()) << qPrintable(session.errorString());
    EXPECT_EQ(0, exitStatusOf(session.updaterPid()));
    EXPECT_EQ(QByteArray("[Main]\nname=1\n"), fileContent(configCopies + "/Main.ini"));
}

TEST_F(HandOver, AMissingUpdaterIsAClearFailureThatChangesNothing)
{
    const QStringList before = filesBelow(root.path());
    const QString absent = root.filePath("bin/updater");
    CUpdaterSession session(absent, backup, threeFiles());
    const QString key = uniqueKey();
    session.setKey(key);

    EXPECT_EQ(CUpdaterSession::ProgramMissing, session.run());
    EXPECT_TRUE(session.errorString().contains(absent)) << qPrintable(session.errorString());
    EXPECT_EQ(0, session.updaterPid());
    EXPECT_EQ(before, filesBelow(root.path()));
    EXPECT_FALSE(QFileInfo::exists(backup));
    QSharedMemory probe(key);
    EXPECT_FALSE(probe.attach());
}

TEST_F(HandOver, AProgramThatNeverAnswersIsNotWaitedForForever)
{
    // /bin/true ends at once without ever marking itself ready.
    CUpdaterSession session("/bin/true", backup, threeFiles());
    session.setKey(uniqueKey());
    EXPECT_EQ(CUpdaterSession::UpdaterLost, session.run());
    EXPECT_TRUE(session.errorString().contains("before it was ready")) << qPrintable(session.errorString());
    exitStatusOf(session.updaterPid());
    EXPECT_EQ(QByteArray("old b.so"), fileContent(dest + "/b.so"));
}

TEST_F(HandOver, AnUpdaterKilledMidRunDoesNotHangTheModule)
{
    CUpdaterSession::Hooks hooks;
    CUpdaterSession* running = nullptr;
    hooks.prepare = [&](int index, UpdaterRequest&) {
        if (index == 1)
            ::kill(running->updaterPid(), SIGKILL);
        return CUpdaterSession::Send;
    };
    std::vector<int> served;
    hooks.served = [&](int index, int) { served.push_back(index); };
    CUpdaterSession session(kUpdater, backup, threeFiles(), hooks);
    running = &session;
    session.setKey(uniqueKey());

    EXPECT_EQ(CUpdaterSession::UpdaterLost, session.run());
    EXPECT_TRUE(session.errorString().contains("b.so")) << qPrintable(session.errorString());
    EXPECT_EQ(128 + SIGKILL, exitStatusOf(session.updaterPid()));
    EXPECT_EQ(std::vector<int>{0}, served);
    // The first file is in; the second was never touched.
    EXPECT_EQ(QStringList({"a.so", "b.so", "kept.so"}), filesBelow(dest));
    EXPECT_EQ(QByteArray("old b.so"), fileContent(dest + "/b.so"));
}

TEST_F(HandOver, StopTakesEffectBetweenFiles)
{
    CUpdaterSession::Hooks hooks;
    CUpdaterSession* running = nullptr;
    std::vector<int> served;
    hooks.served = [&](int index, int) {
        served.push_back(index);
        running->requestStop();
    };
    CUpdaterSession session(kUpdater, backup, threeFiles(), hooks);
    running = &session;
    session.setKey(uniqueKey());

    EXPECT_EQ(CUpdaterSession::Cancelled, session.run());
    EXPECT_EQ(0, exitStatusOf(session.updaterPid()));
    EXPECT_EQ(std::vector<int>{0}, served);
    EXPECT_EQ(QStringList({"a.so", "b.so", "kept.so"}), filesBelow(dest));
    EXPECT_EQ(QByteArray("old b.so"), fileContent(dest + "/b.so"));
}

TEST_F(HandOver, PrepareMaySkipAFileOrFailTheWholeHandOver)
{
    CUpdaterSession::Hooks hooks;
    std::vector<int> served;
    hooks.served = [&](int index, int) { served.push_back(index); };
    hooks.prepare = [](int index, UpdaterRequest&) {
        return index == 1 ? CUpdaterSession::Skip : CUpdaterSession::Send;
    };
    CUpdaterSession skipping(kUpdater, backup, threeFiles(), hooks);
    skipping.setKey(uniqueKey());
    ASSERT_EQ(CUpdaterSession::Finished, skipping.run());
    EXPECT_EQ(0, exitStatusOf(skipping.updaterPid()));
    EXPECT_EQ(std::vector<int>({0, 2}), served);
    EXPECT_EQ(QByteArray("old b.so"), fileContent(dest + "/b.so"));
    EXPECT_EQ(QByteArray("new c.so"), fileContent(dest + "/c.so"));

    served.clear();
    hooks.prepare = [](int index, UpdaterRequest& request) {
        request.source.replace("a.so", "c.so");  // a request may be changed, too
        return index == 1 ? CUpdaterSession::Fail : CUpdaterSession::Send;
    };
    ASSERT_TRUE(writeFile(download + "/c.so", "newer c.so"));
    CUpdaterSession failing(kUpdater, backup, threeFiles(), hooks);
    failing.setKey(uniqueKey());
    EXPECT_EQ(CUpdaterSession::RequestFailed, failing.run());
    EXPECT_EQ(0, exitStatusOf(failing.updaterPid()));  // told to finish
    EXPECT_EQ(std::vector<int>{0}, served);
    EXPECT_EQ(QByteArray("newer c.so"), fileContent(dest + "/c.so"));
}

TEST_F(HandOver, BadRequestsAreAnsweredWithAnErrorAndLoseNothing)
{
    const QString tooLong = download + "/" + QString(1100, 'p');
    const QVector<UpdaterRequest> requests = {
        {download + "/a.so", root.filePath("no/such/folder"), false},
        {tooLong, dest, false},
        {download + "/absent.so", dest, false},
        {download + "/b.so", dest, false},
    };
    std::vector<int> errors;
    CUpdaterSession::Hooks hooks;
    hooks.served = [&](int, int error) { errors.push_back(error); };
    CUpdaterSession session(kUpdater, backup, requests, hooks);
    session.setKey(uniqueKey());

    ASSERT_EQ(CUpdaterSession::Finished, session.run());
    EXPECT_EQ(0, exitStatusOf(session.updaterPid()));
    ASSERT_EQ(4u, errors.size());
    EXPECT_EQ(ENOENT, errors[0]);
    EXPECT_EQ(ENAMETOOLONG, errors[1]);  // the path was cut to 1024 units: a name over 255 bytes
    EXPECT_EQ(ENOENT, errors[2]);
    EXPECT_EQ(0, errors[3]);
    EXPECT_FALSE(QFileInfo::exists(root.filePath("no")));
    EXPECT_EQ(QStringList({"b.so", "kept.so"}), filesBelow(dest));
    ASSERT_EQ(1, backupsOf("b.so").size());
    EXPECT_EQ(QByteArray("old b.so"), fileContent(backupsOf("b.so")[0]));
    const QByteArray log = fileContent(backup + "/updater.log");
    EXPECT_EQ(3, log.count("failed: "));
}

TEST_F(HandOver, AnUpdaterThatFailsEveryFileChangesNothing)
{
    ASSERT_TRUE(QFileInfo(kFailingUpdater).isExecutable()) << qPrintable(kFailingUpdater);
    const QStringList before = filesBelow(root.path());
    std::vector<int> errors;
    CUpdaterSession::Hooks hooks;
    hooks.served = [&](int, int error) { errors.push_back(error); };
    CUpdaterSession session(kFailingUpdater, backup, threeFiles(), hooks);
    session.setKey(uniqueKey());

    ASSERT_EQ(CUpdaterSession::Finished, session.run());
    EXPECT_EQ(0, exitStatusOf(session.updaterPid()));
    EXPECT_EQ(std::vector<int>({EIO, EIO, EIO}), errors);
    EXPECT_EQ(before, filesBelow(root.path()));
    EXPECT_EQ(QByteArray("old b.so"), fileContent(dest + "/b.so"));
}
