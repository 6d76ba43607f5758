#pragma once
// One hand-over of files to the updater program: the segment, the launch and
// the request loop. The dialog's installation worker wires it to the download
// state file and the progress dialog through the hooks.
//
// Protocol (the segment is protocol/InstallRecords.h): the module creates and
// zeroes the segment and starts the updater, which sets done when it is ready.
// Each round the module takes the segment's lock; while done is 0 the updater
// is busy and the module lets go and yields. Once done is set it reads error
// (the answer to its last request), writes the next request (clearing done)
// and lets go. After the last answer it writes finished instead. The module
// never writes while a request is pending, so a stop request takes effect only
// between files and never leaves a file half handed over.
//
// run() blocks until the hand-over ends; call it on a worker thread. Hooks
// are called on that thread, prepare with the segment locked.
#include <atomic>
#include <functional>

#include <QString>
#include <QVector>

class QSharedMemory;
struct umUpdateFile;

struct UpdaterRequest {
    QString source;                  // the file to install, or the configuration file to back up
    QString destination;             // the folder it goes into
    bool copyConfiguration = false;  // the configuration backup request
};

class CUpdaterSession {
public:
    enum Result {
        Finished,        // every request was answered and finished was set
        Cancelled,       // requestStop(): finished was set after the current file
        ProgramMissing,  // no updater program at that path; nothing was created or started
        SegmentFailed,   // the shared segment could not be made (a key in use, no memory)
        LockFailed,      // the segment's lock could not be taken
        StartFailed,     // the updater process could not be started (fork failed)
        UpdaterLost,     // the updater ended while a request or its readiness was awaited
        RequestFailed,   // prepare() refused a request; finished was set
    };
    // What prepare() decides for a request.
    enum Step { Send, Skip, Fail };

    struct Hooks {
        // Once, before the first round: the progress range (0, request count).
        std::function<void(int minimum, int maximum)> range;
        // Every round, with the index of the request to write next.
        std::function<void(int value)> value;
        // Before request index is written; may change it, skip it or fail the
        // whole hand-over.
        std::function<Step(int index, UpdaterRequest& request)> prepare;
        // The updater's answer to request index: 0 or the errno it reported.
        std::function<void(int index, int error)> served;
    };

    CUpdaterSession(QString program, QString backupFolder, QVector<UpdaterRequest> requests,
                    Hooks hooks = Hooks());
    CUpdaterSession(const CUpdaterSession&) = delete;
    CUpdaterSession& operator=(const CUpdaterSession&) = delete;

    // Keys tried after the current second's one when it is in use.
    static constexpr int kKeyAttempts = 60;

    // The segment key; by default made from the current time when run() starts.
    void setKey(const QString& key);
    QString key() const;

    Result run();
    // Thread-safe; honoured at the next round in which the updater is idle.
    void requestStop();

    // The updater's process id once started (it is never reaped: the parent
    // of the module may reap it), 0 before.
    int updaterPid() const;
    // What went wrong, naming the program, the key or the request.
    QString errorString() const;

private:
    Result handOver(umUpdateFile* segment, QSharedMemory& memory);
    Result fail(Result result, const QString& message);

    QString program_;
    QString backupFolder_;
    QVector<UpdaterRequest> requests_;
    Hooks hooks_;
    QString key_;
    QString errorString_;
    std::atomic<bool> stop_{false};
    std::atomic<int> pid_{0};
};
