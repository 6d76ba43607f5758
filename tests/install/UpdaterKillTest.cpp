// The updater killed (SIGKILL) in the middle of a large file: the installed
// file is still the old one, never part new, and the next hand-over installs
// the new one whole, keeps the old one as its backup and removes the killed
// updater's temporary file.
#include <cerrno>
#include <csignal>
#include <thread>

#include <sys/wait.h>

#include <QDirIterator>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "transfer/support/FileHelpers.h"
#include "transfer/support/WaitFor.h"
#include "update/UpdaterSession.h"

namespace {

QStringList partFiles(const QString& folder)
{
    return QDir(folder).entryList({QStringLiteral(".updater-*.part")}, QDir::Files | QDir::Hidden);
}

QString backupOf(const QString& backupRoot, const QString& name)
{
    QDirIterator it(backupRoot, {name}, QDir::Files, QDirIterator::Subdirectories);
    return it.hasNext() ? it.next() : QString();
}

}  // namespace

TEST(UpdaterKilled, MidFileLeavesTheOldFileAndTheNextHandOverInstallsTheNewOne)
{
    QTemporaryDir root;
    const QString download = root.filePath("download"), dest = root.filePath("modules");
    QDir().mkpath(download);
    QDir().mkpath(dest);
    const QByteArray old = "the old module";
    writeText(dest + "/big.so", old);
    QFile source(download + "/big.so");
    ASSERT_TRUE(source.open(QIODevice::WriteOnly));
    const QByteArray block = patternBytes(1 << 20, 3);
    for (int i = 0; i < 512; ++i)
        ASSERT_EQ(block.size(), source.write(block));
    source.close();
    const QVector<UpdaterRequest> request{{download + "/big.so", dest, false}};

    {
        CUpdaterSession session(DM_UPDATER_PATH, root.filePath("backup"), request, {});
        session.setKey(QStringLiteral("dm-kill-test-%1").arg(::getpid()));
        std::thread handOver([&] { session.run(); });
        const bool copying = waitFor([&] { return !partFiles(dest).isEmpty() && session.updaterPid() > 0; });
        const pid_t updater = session.updaterPid();
        if (copying)
            ::kill(updater, SIGKILL);
        handOver.join();
        // The updater is this program's child: reaped, as its host would.
        int status = 0;
        while (updater > 0 && ::waitpid(updater, &status, 0) < 0 && errno == EINTR) {
        }
        ASSERT_TRUE(copying) << "the updater never began copying";
    }
    EXPECT_EQ(old, readFile(dest + "/big.so"));
    EXPECT_FALSE(partFiles(dest).isEmpty());

    CUpdaterSession again(DM_UPDATER_PATH, root.filePath("backup"), request, {});
    again.setKey(QStringLiteral("dm-kill-test-again-%1").arg(::getpid()));
    EXPECT_EQ(CUpdaterSession::Finished, again.run());
    const QByteArray installed = readFile(dest + "/big.so");
    EXPECT_EQ(512 << 20, installed.size());
    EXPECT_TRUE(installed.left(block.size()) == block && installed.right(block.size()) == block);
    EXPECT_EQ(old, readFile(backupOf(root.filePath("backup"), "big.so")));
    EXPECT_EQ(QStringList(), partFiles(dest));
}
