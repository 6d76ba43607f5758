#include "platform/VmProcess.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include "platform/ProcessWait.h"

namespace {

// The child notes every launch here before it replaces itself, so that a
// failed execv leaves a trace.
const char kChildLogPath[] = "/tmp/frk.lg";

// The argument vector had four slots when the updater took exactly three
// arguments; more arguments are passed all the same.
constexpr std::size_t kMinimumArgumentSlots = 4;

// Runs in the child between fork and execv, where a child of a threaded
// process may only make async-signal-safe calls: plain open and write, no
// stdio (its lock may be held by a thread that does not exist in the child).
// The log stays open across execv: the updater has always been started with
// it, and its mode follows the umask like any file the host creates.
void noteLaunch()
{
    const int log = ::open(kChildLogPath, O_WRONLY | O_CREAT | O_APPEND, 0666);
    if (log < 0)
        return;
    static const char line[] = "start\n";
    const ssize_t written = ::write(log, line, sizeof line - 1);
    (void)written;  // a log that cannot be written must not stop the launch
}

}  // namespace

struct CVmProcess::Private {
    int pid = 0;
    int error = 0;
    QString errorString;
};

CVmProcess::CVmProcess(bool flag, QObject* /*parent*/)
    : QObject(nullptr), d(new Private), flag_(flag)
{
}

CVmProcess::~CVmProcess() = default;

void CVmProcess::start(const QString& program, const QStringList& arguments)
{
    d->error = 0;
    d->errorString.clear();
    if (d->pid != 0)
        return;

    // Everything the child needs is converted before fork: between fork and
    // execv a child of a threaded process may only make async-signal-safe
    // calls, and the log line is the only other thing it does.
    std::vector<QByteArray> texts;
    texts.push_back(program.toLocal8Bit());
    for (const QString& argument : arguments)
        texts.push_back(argument.toLocal8Bit());
    std::vector<char*> argv(qMax(kMinimumArgumentSlots, texts.size() + 1), nullptr);
    for (std::size_t i = 0; i < texts.size(); ++i)
        argv[i] = texts[i].data();

    errno = 0;
    d->pid = ::fork();
    if (d->pid != 0) {
        d->error = errno;
        d->errorString = QString::fromLocal8Bit(std::strerror(d->error));
        return;
    }
    noteLaunch();
    ::execv(argv[0], argv.data());
    // _exit, not exit: the child must not run the host's atexit handlers or
    // flush the host's stdio buffers a second time.
    ::_exit(1);
}

bool CVmProcess::waitForStarted(int msecs)
{
    d->error = 0;
    d->errorString.clear();
    if (d->pid != 0)
        WaitProcess(d->pid, msecs, true);
    return true;
}

bool CVmProcess::waitForFinished(int msecs)
{
    d->error = 0;
    d->errorString.clear();
    if (d->pid != 0)
        WaitProcess(d->pid, msecs, false);
    return true;
}

void CVmProcess::kill()
{
    if (d->pid != 0)
        ::kill(d->pid, SIGTERM);
}

void CVmProcess::terminate()
{
    if (d->pid != 0)
        ::kill(d->pid, SIGKILL);
}

int CVmProcess::error() const
{
    return d->error;
}

QString CVmProcess::errorString() const
{
    return d->errorString;
}

int CVmProcess::exitCode() const
{
    return 0;
}

int CVmProcess::pid() const
{
    return d->pid;
}

bool CVmProcess::flag() const
{
    return flag_;
}
