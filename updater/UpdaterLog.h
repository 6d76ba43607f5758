#pragma once
// The updater's record of what it did: one line per event, appended and
// flushed at once, so that the log is complete up to a crash.
#include <cstdio>

#include <QString>

class CUpdaterLog {
public:
    // An empty path or a file that cannot be opened logs to standard error.
    explicit CUpdaterLog(const QString& path);
    ~CUpdaterLog();
    CUpdaterLog(const CUpdaterLog&) = delete;
    CUpdaterLog& operator=(const CUpdaterLog&) = delete;

    // Writes "<local time> [<pid>] <text>".
    void write(const QString& text);

private:
    FILE* file_ = nullptr;
};
