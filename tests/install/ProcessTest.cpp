// The process class that launches the updater. The module noticing an updater
// that died is tested through the hand-over (HandOverTest.cpp).
#include <cerrno>
#include <memory>

#include <signal.h>
#include <sys/wait.h>

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "platform/ProcessWait.h"
#include "platform/VmProcess.h"
#include "transfer/support/FileHelpers.h"
#include "transfer/support/WaitFor.h"

// Before a start nothing is signalled (kill(2) of pid 0 would signal this
// whole process group). The child is started once, gets its arguments as
// they are (no shell between), holds the launch log "/tmp/frk.lg" open as
// the updater always has, and the object's end leaves it running.
TEST(VmProcess, SignalsNothingBeforeAStartPassesArgumentsAsTheyAreAndLeavesTheChildRunning)
{
    QTemporaryDir dir;
    const QString out = dir.filePath("args.txt");
    auto process = std::make_unique<CVmProcess>(false, nullptr);
    process->kill();
    process->terminate();
    EXPECT_EQ(0, process->pid());

    const QString script = "printf '%s|' \"$0\" \"$1\" > \"$2\"; exec sleep 600";
    process->start("/bin/sh", {"-c", script, "\"quoted arg\"", "$HOME", out});
    const int pid = process->pid();
    ASSERT_GT(pid, 0);
    EXPECT_EQ(0, process->error());
    process->start("/bin/true", {});
    EXPECT_EQ(pid, process->pid());
    const QString proc = QStringLiteral("/proc/%1").arg(pid);
    ASSERT_TRUE(waitFor([&] { return QFileInfo(proc + "/exe").symLinkTarget().endsWith("/sleep"); }));
    EXPECT_EQ(QByteArray("\"quoted arg\"|$HOME|"), readFile(out));
    QStringList open;
    for (const QFileInfo& fd : QDir(proc + "/fd").entryInfoList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot))
        open << fd.symLinkTarget();
    EXPECT_TRUE(open.contains(QStringLiteral("/tmp/frk.lg"))) << open.join(' ').toStdString();
    process.reset();
    EXPECT_TRUE(IsProcessRunning(pid));
    ::kill(pid, SIGKILL);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
}
