#pragma once
// The host's log sink: the function handed to the module with code 3205. It
// prints one line per record,
//
//   log: <source> type=<type> level=<level> <text>
//
// to standard error or to a file. Line breaks inside a text are written as
// \r and \n so that a record never spans lines. The sink is a plain function
// pointer without a context argument, so it reaches the one open printer
// through a static; it may be called from any thread and after the printer
// is gone (then it drops the record and answers 1).
#include <QFile>
#include <QString>
#include <QStringList>

#include "protocol/HostRecords.h"

class HostLogPrinter {
public:
    HostLogPrinter() = default;
    ~HostLogPrinter();
    HostLogPrinter(const HostLogPrinter&) = delete;
    HostLogPrinter& operator=(const HostLogPrinter&) = delete;

    // Appends to path, or writes to standard error when path is empty, and
    // makes this printer the one the sink writes through. false with
    // errorString() when the file cannot be opened.
    bool open(const QString& path);
    QString errorString() const { return error_; }
    int linesWritten() const;
    // The lines written so far, without the line break, for a script waiting
    // for one; kept only after keepLines() (a terminal running for days must
    // not keep its whole log in memory).
    void keepLines() { keepLines_ = true; }
    QStringList linesFrom(int first) const;

    static int sink(const LogRecord* record);
    static QString formatRecord(const LogRecord& record);

private:
    void write(const QByteArray& line);

    QFile file_;
    QString error_;
    int lines_ = 0;
    bool keepLines_ = false;
    QStringList kept_;
};
