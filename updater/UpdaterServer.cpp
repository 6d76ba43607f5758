#include "updater/UpdaterServer.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <utility>

#include <unistd.h>

#include <QElapsedTimer>
#include <QSharedMemory>

#include "storage/RecordText.h"
#include "updater/FileInstaller.h"
#include "updater/UpdaterLog.h"

namespace {

// The pause between two looks at an idle segment: short enough that a
// request waits about a millisecond, long enough to leave the processor free.
constexpr long kPollPauseNs = 1000000;

// How long the segment stays idle before the updater checks that the module
// still holds it.
constexpr qint64 kPresenceCheckMs = 200;

void pauseBriefly()
{
    timespec request{0, kPollPauseNs};
    nanosleep(&request, nullptr);
}

QString path(const char16_t* field)
{
    return utf16FieldText(field, kUpdatePathUnits);
}

// Whether anybody else still holds the segment. The system releases a
// segment when its last user detaches (QSharedMemory::detach), so detaching
// and attaching again fails exactly when the module has dropped it. Its lock
// tells nothing: Qt makes the semaphore anew when it finds it removed.
bool othersHoldSegment(QSharedMemory& memory, umUpdateFile*& segment)
{
    memory.detach();
    if (!memory.attach(QSharedMemory::ReadWrite))
        return false;
    segment = static_cast<umUpdateFile*>(memory.data());
    return true;
}

}  // namespace

CUpdaterServer::CUpdaterServer(QString key, Handler handler, CUpdaterLog* log)
    : key_(std::move(key)), handler_(std::move(handler)), log_(log)
{
}

void CUpdaterServer::setIdleLimitMs(int milliseconds)
{
    idleLimitMs_ = milliseconds;
}

int CUpdaterServer::servedCount() const
{
    return served_;
}

CUpdaterServer::Outcome CUpdaterServer::run()
{
    const pid_t starter = ::getppid();
    QSharedMemory memory(key_);
    if (!memory.attach(QSharedMemory::ReadWrite)) {
        if (log_)
            log_->write(QString("cannot attach to segment %1: %2").arg(key_, memory.errorString()));
        return AttachFailed;
    }
    if (memory.size() < int(sizeof(umUpdateFile))) {
        if (log_)
            log_->write(QString("segment %1 has %2 bytes, too few").arg(key_).arg(memory.size()));
        return AttachFailed;
    }
    auto* segment = static_cast<umUpdateFile*>(memory.data());

    if (!memory.lock())
        return SegmentGone;
    segment->done = 1;
    memory.unlock();
    if (log_)
        log_->write(QString("ready on segment %1").arg(key_));

    QElapsedTimer idle;
    idle.start();
    QElapsedTimer sinceCheck;
    sinceCheck.start();
    for (;;) {
        if (!memory.lock()) {
            if (log_)
                log_->write(QString("cannot lock segment %1: %2").arg(key_, memory.errorString()));
            return SegmentGone;
        }
        if (segment->finished != 0) {
            memory.unlock();
            if (log_)
                log_->write(QString("finished after %1 requests").arg(served_));
            return Finished;
        }
        if (segment->done < 1) {
            umUpdateFile request;
            std::memcpy(&request, segment, sizeof request);
            memory.unlock();

            const int error = handler_(request);
            ++served_;
            if (!memory.lock())
                return SegmentGone;
            segment->error = error;
            segment->done = 1;
            memory.unlock();
            idle.restart();
            sinceCheck.restart();
            continue;
        }
        memory.unlock();

        if (sinceCheck.elapsed() >= kPresenceCheckMs) {
            sinceCheck.restart();
            if (!othersHoldSegment(memory, segment)) {
                if (log_)
                    log_->write(QString("segment %1 was dropped after %2 requests").arg(key_).arg(served_));
                return SegmentGone;
            }
        }

        if (idle.elapsed() > idleLimitMs_) {
            if (log_)
                log_->write(QString("no request for %1 ms, giving up").arg(idleLimitMs_));
            return IdleTimeout;
        }
        if (::getppid() != starter) {
            if (log_)
                log_->write(QString("the module's process has ended"));
            return ModuleGone;
        }
        pauseBriefly();
    }
}

CUpdaterServer::Handler installingHandler(CFileInstaller* installer, CUpdaterLog* log)
{
    return [installer, log](const umUpdateFile& request) {
        const QString source = path(request.source);
        const QString folder = path(request.destination);
        const bool configuration = request.copyConfiguration != 0;
        const int error = installer->install(source, folder, configuration);
        if (error && log) {
            log->write(QString("%1 %2 into %3 failed: %4 (errno %5)")
                           .arg(configuration ? "configuration copy of" : "install of", source, folder,
                                QString::fromLocal8Bit(std::strerror(error)))
                           .arg(error));
        }
        return error;
    };
}
