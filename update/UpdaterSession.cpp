#include "update/UpdaterSession.h"

#include <ctime>
#include <cstring>
#include <utility>

#include <QDir>
#include <QFileInfo>
#include <QSharedMemory>

#include "platform/ProcessWait.h"
#include "platform/VmProcess.h"
#include "protocol/InstallRecords.h"
#include "update/UpdaterProtocol.h"

namespace {

// How long the launch and the final waits last; the process class waits at
// most msecs % 10 ms whatever is asked.
constexpr int kStartWaitMs = 30000;
constexpr int kFinishWaitMs = 1000;

// While the updater is busy the loop checks every this many rounds (about a
// millisecond each) that it is still alive: an updater that was killed would
// otherwise be waited for forever.
constexpr int kLivenessCheckRounds = 32;

}  // namespace

CUpdaterSession::CUpdaterSession(QString program, QString backupFolder, QVector<UpdaterRequest> requests,
                                 Hooks hooks)
    : program_(std::move(program)),
      backupFolder_(std::move(backupFolder)),
      requests_(std::move(requests)),
      hooks_(std::move(hooks))
{
}

void CUpdaterSession::setKey(const QString& key)
{
    key_ = key;
}

QString CUpdaterSession::key() const
{
    return key_;
}

void CUpdaterSession::requestStop()
{
    stop_ = true;
}

int CUpdaterSession::updaterPid() const
{
    return pid_;
}

QString CUpdaterSession::errorString() const
{
    return errorString_;
}

CUpdaterSession::Result CUpdaterSession::fail(Result result, const QString& message)
{
    errorString_ = message;
    return result;
}

CUpdaterSession::Result CUpdaterSession::run()
{
    errorString_.clear();
    // The launch itself cannot tell a missing program (the child's execv
    // fails unseen), so the program is looked for first.
    const QFileInfo program(program_);
    if (!program.isFile() || !program.isExecutable())
        return fail(ProgramMissing, QString("Updater program %1 not found or not executable").arg(program_));

    QDir().mkpath(backupFolder_);
    const bool keyGiven = !key_.isEmpty();
    const qint64 now = qint64(std::time(nullptr));
    if (!keyGiven)
        key_ = updaterSegmentKey(now);

    QSharedMemory memory(key_);
    // The key is the time in seconds: two hand-overs that start in the same
    // second (two terminals, parallel tests) would meet on one segment, so a
    // key in use moves on to the next seconds' keys.
    bool created = memory.create(kUpdateSegmentSize, QSharedMemory::ReadWrite);
    for (qint64 later = 1; !created && !keyGiven && later <= kKeyAttempts
         && memory.error() == QSharedMemory::AlreadyExists;
         ++later) {
        key_ = updaterSegmentKey(now + later);
        memory.setKey(key_);
        created = memory.create(kUpdateSegmentSize, QSharedMemory::ReadWrite);
    }
    if (!created)
        return fail(SegmentFailed, QString("Shared segment %1: %2").arg(key_, memory.errorString()));
    if (!memory.lock())
        return fail(LockFailed, QString("Shared segment %1: %2").arg(key_, memory.errorString()));

    auto* segment = static_cast<umUpdateFile*>(memory.data());
    std::memset(segment, 0, sizeof *segment);
    CVmProcess process(true, nullptr);
    process.start(program_, updaterArguments(backupFolder_, key_));
    // A failed fork leaves the pid at -1; the process class would pass it on
    // to kill(), which would signal every process of the user.
    if (process.pid() <= 0) {
        memory.unlock();
        return fail(StartFailed, QString("Cannot start %1: %2").arg(program_, process.errorString()));
    }
    pid_ = process.pid();
    process.waitForStarted(kStartWaitMs);
    memory.unlock();
    yield();

    const Result result = handOver(segment, memory);
    // The waits of the process class always succeed, so the updater is left
    // to see finished (or the segment gone) and end on its own.
    if (!process.waitForFinished(kFinishWaitMs)) {
        process.terminate();
        process.waitForFinished(kFinishWaitMs);
        process.kill();
    }
    return result;
}

CUpdaterSession::Result CUpdaterSession::handOver(umUpdateFile* segment, QSharedMemory& memory)
{
    const int count = requests_.size();
    if (hooks_.range)
        hooks_.range(0, count);
    if (hooks_.value)
        hooks_.value(0);

    int next = 0;
    int pending = -1;  // the request the updater is working on; -1: none (its readiness)
    int busyRounds = 0;
    for (;;) {
        if (!memory.lock())
            return fail(LockFailed, QString("Shared segment %1: %2").arg(key_, memory.errorString()));
        if (hooks_.value)
            hooks_.value(next);

        const int done = segment->done;
        if (done < 1) {
            memory.unlock();
            if (++busyRounds % kLivenessCheckRounds == 0 && !IsProcessRunning(pid_)) {
                return fail(UpdaterLost, pending < 0
                    ? QString("The updater %1 ended before it was ready").arg(program_)
                    : QString("The updater %1 ended while installing %2").arg(program_, requests_[pending].source));
            }
            yield();
            continue;
        }
        busyRounds = 0;

        if (pending >= 0) {
            const int error = segment->error;
            if (hooks_.served)
                hooks_.served(pending, error);
            pending = -1;
        }

        if (next >= count || stop_) {
            writeFinished(*segment);
            memory.unlock();
            return next >= count ? Finished : Cancelled;
        }

        UpdaterRequest request = requests_[next];
        const Step step = hooks_.prepare ? hooks_.prepare(next, request) : Send;
        if (step == Fail) {
            writeFinished(*segment);
            memory.unlock();
            return fail(RequestFailed, QString("Request %1 (%2) refused").arg(next).arg(request.source));
        }
        if (step == Send) {
            if (request.copyConfiguration)
                writeConfigCopyRequest(*segment, request.source, request.destination);
            else
                writeInstallRequest(*segment, request.source, request.destination);
            pending = next;
        }
        ++next;
        memory.unlock();
        yield();
    }
}
