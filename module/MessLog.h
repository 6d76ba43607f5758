#pragma once
// A small file logger that appends time-stamped lines to a text file. The
// module carries it for components that want a file of their own; failures
// to write are never reported.
#include <QMutex>
#include <QString>

enum CriticalLevel : int {
    clCritical = 0, clError = 1, clWarning = 2, clInfo = 3, clDebug = 4, clTrace = 5
};

class messLog {
public:
    messLog(const char* fileName, const char* parentName, CriticalLevel threshold);
    explicit messLog(const char* parentName);
    messLog();

    QString createNameForParent() const;
    void setNameFile(const QString& fileName);
    void setParentName(const QString& name, bool rename);
    // Appends line and CR LF to the file; nothing when the file cannot be opened.
    void printData(const QString& line);
    // Writes "dd.MM hh.mm.ss - text" when level is at most the threshold.
    void addMessage(const QString& text, CriticalLevel level);

    QString fileName() const { return fileName_; }
    QString parentName() const { return parentName_; }
    CriticalLevel threshold() const { return threshold_; }

private:
    QMutex mutex_;  // kept for callers that share one logger; no operation takes it
    QString fileName_;
    QString parentName_;
    CriticalLevel threshold_;
};

// The stamp that addMessage puts before a line: day, month, hour, minute,
// second as "%02d.%02d %02d.%02d.%02d".
QString messLogStamp(int day, int month, int hour, int minute, int second);
