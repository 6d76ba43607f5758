// The process class that launches the updater, and the waits around it.
#include <cerrno>
#include <chrono>
#include <memory>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "platform/ProcessWait.h"
#include "platform/VmProcess.h"

namespace {

using Clock = std::chrono::steady_clock;

long long elapsedMs(Clock::time_point since)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - since).count();
}

// A child that sleeps until a signal ends it; the test reaps it.
pid_t sleepingChild()
{
    const pid_t pid = ::fork();
    if (pid == 0) {
        for (;;)
            ::pause();
    }
    return pid;
}

// Reaps pid and returns its wait status.
int reap(int pid)
{
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

int countStartLines()
{
    QFile log("/tmp/frk.lg");
    if (!log.open(QIODevice::ReadOnly))
        return 0;
    return log.readAll().count("start\n");
}

}  // namespace

TEST(Sleep, SleepsBelowOneSecondAndTakesASecondOrMoreAsInvalid)
{
    const auto start = Clock::now();
    errno = 0;
    Sleep(5);
    EXPECT_GE(elapsedMs(start), 5);
    Sleep(999);
    EXPECT_EQ(0, errno);
    // 1500 ms as nanoseconds alone is out of nanosleep's range; splitting it
    // into seconds would have made it valid.
    Sleep(1500);
    EXPECT_EQ(EINVAL, errno);
}

TEST(ProcessExistence, LiveZombieAndReapedProcesses)
{
    EXPECT_TRUE(IsProcessExist(::getpid()));
    // Pid 1 exists whoever asks; an ordinary user is refused (EPERM), which
    // still counts as existing.
    EXPECT_TRUE(IsProcessExist(1));

    const pid_t child = sleepingChild();
    ASSERT_GT(child, 0);
    EXPECT_TRUE(IsProcessExist(child));
    EXPECT_TRUE(IsProcessRunning(child));

    ::kill(child, SIGKILL);
    // Not reaped yet: a zombie exists for the signal test but is not running.
    siginfo_t info;
    ASSERT_EQ(0, ::waitid(P_PID, id_t(child), &info, WEXITED | WNOWAIT));
    EXPECT_TRUE(IsProcessExist(child));
    EXPECT_FALSE(IsProcessRunning(child));

    reap(child);
    EXPECT_FALSE(IsProcessExist(child));
    EXPECT_FALSE(IsProcessRunning(child));
    EXPECT_FALSE(IsProcessRunning(0));
}

TEST(WaitProcess, WaitsOnlyTheRemainderOfTenMilliseconds)
{
    const pid_t child = sleepingChild();
    ASSERT_GT(child, 0);

    // 25 ms: one sleep of 5 ms, then a last test; the child is still there.
    auto start = Clock::now();
    EXPECT_FALSE(WaitProcess(child, 25, false));
    EXPECT_GE(elapsedMs(start), 5);

    EXPECT_FALSE(WaitProcess(child, 30, false));
    EXPECT_TRUE(WaitProcess(child, 30, true));
    EXPECT_TRUE(WaitProcess(child, 7, true));

    ::kill(child, SIGKILL);
    reap(child);
    EXPECT_TRUE(WaitProcess(child, 30, false));
    EXPECT_FALSE(WaitProcess(child, 3, true));
}

// The quotes and the blank reach the child unchanged (no shell between the
// module and the updater); a program that cannot be run shows only in the
// child's exit status, and the launch is noted all the same.
TEST(VmProcess, PassesArgumentsAsTheyAreAndAMissingProgramShowsOnlyInItsExitStatus)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString out = dir.filePath("args.txt");
    const int startsBefore = countStartLines();
    const struct {
        QString program;
        QStringList arguments;
        int exitStatus;
    } cases[] = {{"/bin/sh", {"-c", "printf '%s|' \"$0\" \"$1\" > \"$2\"", "\"quoted arg\"", "$HOME", out}, 0},
                 {"/nonexistent/updater", {"-u", "\"x\"", "key"}, 1}};
    for (const auto& c : cases) {
        CVmProcess process(true);
        EXPECT_EQ(0, process.pid());
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
    EXPECT_GE(countStartLines(), startsBefore + 2);
}

// Before a start nothing is signalled (with pid 0, kill(2) would signal the
// whole process group, this test program included). The child is started
// once; the waits succeed at once whatever it does, and the object's end
// leaves it running.
TEST(VmProcess, SignalsNothingBeforeAStartStartsOnceAndLeavesTheChildRunning)
{
    auto process = std::make_unique<CVmProcess>(false, nullptr);
    process->kill();
    process->terminate();
    EXPECT_TRUE(process->waitForFinished(5));
    EXPECT_EQ(0, process->pid());

    process->start("/bin/sh", {"-c", "exec sleep 600"});
    const int pid = process->pid();
    ASSERT_GT(pid, 0);
    process->start("/bin/true", {});
    EXPECT_EQ(pid, process->pid());
    EXPECT_TRUE(process->waitForStarted(30000));
    EXPECT_TRUE(process->waitForFinished(1000));
    process.reset();
    EXPECT_TRUE(IsProcessRunning(pid));
    ::kill(pid, SIGKILL);
    reap(pid);
}

TEST(VmProcess, KillSendsSigtermAndTerminateSigkill)
{
    const std::pair<void (CVmProcess::*)(), int> cases[] = {{&CVmProcess::kill, SIGTERM},
                                                            {&CVmProcess::terminate, SIGKILL}};
    for (const auto& [stop, signal] : cases) {
        CVmProcess process(true);
        process.start("/bin/sh", {"-c", "exec sleep 600"});
        ASSERT_GT(process.pid(), 0);
        (process.*stop)();
        const int status = reap(process.pid());
        ASSERT_TRUE(WIFSIGNALED(status));
        EXPECT_EQ(signal, WTERMSIG(status));
    }
}
