// Handing files to the real updater program through the shared segment.
#include <cerrno>
#include <ctime>
#include <memory>
#include <vector>

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

// Files one after another, each in place before the next request is written,
// then finished; the segment goes with the session, and the updater, a child
// of this program, saw finished (exit 0). What the folders hold after is
// WorkflowInstallTest.cpp's. The key is made from the clock and moves on
// while a segment holds it: here this second's and the next two's. Tests
// running beside this one use the same keys, so a second one of them holds is
// tried again a second later.
TEST(HandOver, FilesOneAfterAnotherUnderAClockKeyThatMovesOnWhenInUse)
{
    const QString updater = DM_UPDATER_PATH;
    ASSERT_TRUE(QFileInfo(updater).isExecutable()) << qPrintable(updater);
    QTemporaryDir root;
    const QString download = root.filePath("download"), dest = root.filePath("modules");
    ASSERT_TRUE(QDir().mkpath(dest));
    for (const char* name : {"a.so", "b.so", "c.so"})
        ASSERT_TRUE(writeText(download + "/" + name, QByteArray("new ") + name));
    ASSERT_TRUE(writeText(dest + "/b.so", "old b.so"));

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

    QStringList events;
    CUpdaterSession::Hooks hooks;
    hooks.range = [&](int low, int high) { events << QString("range %1-%2").arg(low).arg(high); };
    hooks.prepare = [&](int index, UpdaterRequest&) {
        int installed = 0;  // files of dest that hold their new content
        for (const QString& name : filesBelow(dest))
            installed += readFile(dest + "/" + name).startsWith("new ") ? 1 : 0;
        events << QString("write %1, %2 in place").arg(index).arg(installed);
        return CUpdaterSession::Send;
    };
    hooks.served = [&](int index, int error) { events << QString("served %1: %2").arg(index).arg(error); };
    auto session = std::make_unique<CUpdaterSession>(
        updater, download + "/Backup",
        QVector<UpdaterRequest>{{download + "/a.so", dest, false}, {download + "/b.so", dest, false},
                                {download + "/c.so", dest, false}},
        hooks);
    ASSERT_EQ(CUpdaterSession::Finished, session->run()) << qPrintable(session->errorString());
    const int pid = session->updaterPid();
    int status = -1;
    while (pid > 0 && ::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(QStringList({"range 0-3", "write 0, 0 in place", "served 0: 0", "write 1, 1 in place", "served 1: 0",
                           "write 2, 2 in place", "served 2: 0"}),
              events);

    const QString key = session->key();
    session.reset();
    const qint64 second = key.mid(key.lastIndexOf('-') + 1).toLongLong();
    EXPECT_EQ(updaterSegmentKey(second), key);
    EXPECT_TRUE(second > now + 2 && second <= now + 3 + CUpdaterSession::kKeyAttempts) << qPrintable(key);
    QSharedMemory probe(key);
    EXPECT_FALSE(probe.attach());
}
