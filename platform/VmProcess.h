#pragma once
// The process class that starts the updater: fork and execv, nothing more.
//
// It follows the toolkit's process interface in name only. Its waits are
// short and always succeed, kill() sends SIGTERM and terminate() SIGKILL (the
// other way round from QProcess), the child is never reaped and exitCode() is
// always 0. The installation has always launched its updater this way and the
// updater is written for it. Used on the installation worker thread.
#include <memory>

#include <QObject>
#include <QString>
#include <QStringList>

class CVmProcess : public QObject {
    Q_OBJECT
public:
    // The parent is not used: the object is made without one and its owner
    // deletes it. The flag is kept and has no effect.
    CVmProcess(bool flag, QObject* parent = nullptr);
    // Neither kills nor waits for the child.
    ~CVmProcess() override;

    // Starts program (no PATH search) with arguments, once per object; a
    // second call does nothing. The child appends "start" to "/tmp/frk.lg"
    // first. The parent judges success by pid(): -1 when fork failed. error()
    // and errorString() hold errno as it was after fork, whatever it was.
    void start(const QString& program, const QStringList& arguments);
    // Both wait at most msecs % 10 ms and return true in every case.
    bool waitForStarted(int msecs = 30000);
    bool waitForFinished(int msecs = 30000);

    int error() const;
    QString errorString() const;
    int exitCode() const;
    int pid() const;
    bool flag() const;

public slots:
    void kill();       // SIGTERM
    void terminate();  // SIGKILL

private:
    struct Private;
    std::unique_ptr<Private> d;
    bool flag_;
};
