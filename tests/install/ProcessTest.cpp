// The process class that launches the updater. Whether the module notices an
// updater that died is tested through the hand-over (HandOverTest.cpp).
#include <cerrno>
#include <memory>

#include <signal.h>
#include <sys/wait.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "platform/ProcessWait.h"
#include "platform/VmProcess.h"
#include "transfer/support/WaitFor.h"

namespace {

// Reaps pid and returns its wait status.
int reap(int pid)
{
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

}  // namespace

// The quotes and the blank reach the child unchanged (no shell between the
// module and the updater); a program that cannot be run shows only in the
// child's exit status.
TEST(VmProcess, PassesArgumentsAsTheyAreAndAMissingProgramShowsOnlyInItsExitStatus)
{
    QTemporaryDir dir;
    const QString out = dir.filePath("args.txt");
    const struct {
        QString program;
        QStringList arguments;
        int exitStatus;
    } cases[] = {{"/bin/sh", {"-c", "printf '%s|' \"$0\" \"$1\" > \"$2\"", "\"quoted arg\"", "$HOME", out}, 0},
                 {"/nonexistent/updater", {"-u", "\"x\"", "key"}, 1}};
    for (const auto& c : cases) {
        CVmProcess process(true);
        process.start(c.program, c.arguments);
        ASSERT_GT(process.pid(), 0);
        EXPECT_EQ(0, process.error());
        const int status = reap(process.pid());
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_EQ(c.exitStatus, WEXITSTATUS(status)) << qPrintable(c.program);
    }
    QFile file(out);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(QByteArray("\"quoted arg\"|$HOME|"), file.readAll());
}

// Before a start nothing is signalled (with pid 0, kill(2) would signal the
// whole process group, this test program included). The child is started
// once, holds the launch log "/tmp/frk.lg" open as the updater always has,
// and the object's end leaves it running.
TEST(VmProcess, SignalsNothingBeforeAStartStartsOnceAndLeavesTheChildRunning)
{
    auto process = std::make_unique<CVmProcess>(false, nullptr);
    process->kill();
    process->terminate();
    EXPECT_EQ(0, process->pid());

    process->start("/bin/sh", {"-c", "exec sleep 600"});
    const int pid = process->pid();
    ASSERT_GT(pid, 0);
    process->start("/bin/true", {});
    EXPECT_EQ(pid, process->pid());
    const QString proc = QStringLiteral("/proc/%1").arg(pid);
    ASSERT_TRUE(waitFor([&] { return QFileInfo(proc + "/exe").symLinkTarget().endsWith("/sleep"); }));
    QStringList open;
    for (const QFileInfo& fd : QDir(proc + "/fd").entryInfoList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot))
        open << fd.symLinkTarget();
    EXPECT_TRUE(open.contains(QStringLiteral("/tmp/frk.lg"))) << open.join(' ').toStdString();
    process.reset();
    EXPECT_TRUE(IsProcessRunning(pid));
    ::kill(pid, SIGKILL);
    reap(pid);
}
