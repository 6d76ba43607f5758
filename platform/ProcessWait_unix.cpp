#include "platform/ProcessWait.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <signal.h>
#include <sys/types.h>

namespace {

constexpr int kWaitStepBase = 10;

// The state letter of /proc/<pid>/stat: the field after the parenthesised
// command name, which may itself hold blanks and parentheses, so the last ')'
// is searched for. 0 when the file cannot be read.
char procState(int pid)
{
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%d/stat", pid);
    FILE* file = std::fopen(path, "re");
    if (!file)
        return 0;
    char line[512];
    const std::size_t length = std::fread(line, 1, sizeof line - 1, file);
    std::fclose(file);
    line[length] = 0;
    const char* close = std::strrchr(line, ')');
    if (!close || close[1] != ' ' || close[2] == 0)
        return 0;
    return close[2];
}

}  // namespace

bool IsProcessExist(int pid)
{
    if (::kill(pid, 0) == 0)
        return true;
    return errno != ESRCH;
}

bool WaitProcess(int pid, int msecs, bool exist)
{
    int remaining = msecs;
    int step = remaining % kWaitStepBase;
    while (step > 0) {
        if (IsProcessExist(pid) == exist)
            return true;
        remaining -= step;
        Sleep(step);
        step = remaining % kWaitStepBase;
    }
    return IsProcessExist(pid) == exist;
}

void Sleep(int msecs)
{
    timespec request;
    request.tv_sec = 0;
    request.tv_nsec = long(msecs) * 1000000L;
    nanosleep(&request, nullptr);
}

void yield()
{
    Sleep(1);
}

bool IsProcessRunning(int pid)
{
    if (pid <= 0 || !IsProcessExist(pid))
        return false;
    const char state = procState(pid);
    // Z: ended, not reaped; X: being removed. Without /proc we cannot tell a
    // zombie apart and trust the signal test.
    return state != 'Z' && state != 'X';
}
