// The updater program's parts in-process: the file installer and the ways
// its segment server ends besides finished (HandOverTest.cpp); its failures
// are rows of InstallFaults (tests/update/WorkflowInstallTest.cpp).
#include <cstring>
#include <memory>
#include <thread>

#include <sys/stat.h>
#include <unistd.h>

#include <QFileInfo>
#include <QSharedMemory>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "transfer/support/FileHelpers.h"
#include "platform/ProcessWait.h"
#include "update/UpdaterProtocol.h"
#include "updater/FileInstaller.h"
#include "updater/UpdaterLog.h"
#include "updater/UpdaterServer.h"

namespace {

class Installer : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(root.isValid());
        ASSERT_TRUE(QDir().mkpath(dest));
    }

    QTemporaryDir root;
    QString src = root.filePath("download");
    QString dest = root.filePath("modules");
    QString backup = root.filePath("download/Backup");
    CUpdaterLog log{root.filePath("updater.log")};
    CFileInstaller installer{backup, &log};
};

}  // namespace

// A new file keeps its mode and needs no backup; every version replaced in
// one run is kept (a link to the old file: a file written over in place
// would show the new bytes there) under the run's folder at the
// destination's absolute path, and the replaced file's mode stays. The name
// is the longest a folder allows, so a temporary name made by adding to it
// would be refused. That the source stays and no temporary file is left is
// checked on every installation of tests/update/WorkflowInstallTest.cpp.
TEST_F(Installer, NewFilesKeepTheirModeAndEveryReplacedVersionIsKept)
{
    const auto exec = QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther;
    const QString name = "/" + QString(255, 'q');
    QStringList backups;
    for (const char* content : {"new quotes", "second", "third"}) {
        ASSERT_TRUE(writeText(src + name, content));
        ::chmod(QFile::encodeName(src + name).constData(), backups.isEmpty() ? 0750 : 0644);
        ASSERT_EQ(0, installer.install(src + name, dest, false));
        EXPECT_EQ(QByteArray(content), readFile(dest + name));
        EXPECT_EQ(QFile::ExeOwner | QFile::ExeGroup, QFileInfo(dest + name).permissions() & exec);
        backups << installer.lastBackup();
    }
    EXPECT_TRUE(backups[0].isEmpty());
    EXPECT_EQ(installer.runFolder() + QFileInfo(dest + name).absoluteFilePath(), backups[1]);
    EXPECT_NE(backups[1], backups[2]);
    EXPECT_EQ(QByteArray("new quotes"), readFile(backups[1]));
    EXPECT_EQ(QByteArray("second"), readFile(backups[2]));
    EXPECT_EQ(3, readFile(root.filePath("updater.log")).count("installed "));
}

TEST(UpdaterServer, EndsWhenIdleTooLongWhenTheModuleDropsTheSegmentOrWithoutOne)
{
    const auto answer = [](const umUpdateFile&) { return 0; };
    const QString key = QString("dm-server-test-%1").arg(::getpid());
    auto memory = std::make_unique<QSharedMemory>(key);
    ASSERT_TRUE(memory->create(kUpdateSegmentSize));
    const auto done = [&] {
        memory->lock();
        const int word = static_cast<umUpdateFile*>(memory->data())->done;
        memory->unlock();
        return word;
    };
    std::memset(memory->data(), 0, kUpdateSegmentSize);

    // It says it is ready, then waits for a request no longer than its limit.
    CUpdaterServer idle(key, answer, nullptr);
    idle.setIdleLimitMs(20);
    EXPECT_EQ(CUpdaterServer::IdleTimeout, idle.run());
    EXPECT_EQ(1, done());
    EXPECT_EQ(0, idle.servedCount());

    // The module goes away without saying finished.
    std::memset(memory->data(), 0, kUpdateSegmentSize);
    CUpdaterServer server(key, answer, nullptr);
    CUpdaterServer::Outcome outcome = CUpdaterServer::Finished;
    std::thread updater([&] { outcome = server.run(); });
    while (done() < 1)
        yield();
    memory.reset();
    updater.join();
    EXPECT_EQ(CUpdaterServer::SegmentGone, outcome);

    EXPECT_EQ(CUpdaterServer::AttachFailed, CUpdaterServer(key + "-none", answer, nullptr).run());
}
