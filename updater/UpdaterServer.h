#pragma once
// The updater's side of the shared segment (protocol/InstallRecords.h).
//
// It attaches to the segment the module created, sets done to say it is
// ready and then polls: a request is pending while done is 0; it is copied
// out under the segment's lock, served without the lock, and answered by
// setting error (0 or an errno) and done, again under the lock. The server
// ends when finished is set, when it finds itself the segment's last user
// (the module dropped the segment; checked after 200 ms without a request),
// when the process that started it has ended, or after a long time without
// a request.
#include <functional>

#include <QString>

#include "protocol/InstallRecords.h"

class CUpdaterLog;

class CUpdaterServer {
public:
    enum Outcome {
        Finished = 0,       // the module set finished
        AttachFailed = 1,   // no segment under that key
        SegmentGone = 2,    // the module dropped the segment, or its lock failed
        IdleTimeout = 3,    // no request for idleLimitMs
        ModuleGone = 4,     // the process that started the updater has ended
    };

    // Serves one request, returns 0 or an errno. request is a private copy.
    using Handler = std::function<int(const umUpdateFile& request)>;

    CUpdaterServer(QString key, Handler handler, CUpdaterLog* log);

    void setIdleLimitMs(int milliseconds);
    Outcome run();
    int servedCount() const;

private:
    QString key_;
    Handler handler_;
    CUpdaterLog* log_;
    int idleLimitMs_ = 10 * 60 * 1000;
    int served_ = 0;
};

// The handler the updater program uses: an install request copies source
// into the destination folder, a configuration copy request also makes that
// folder when it is missing. Failures are logged with their errno.
class CFileInstaller;
CUpdaterServer::Handler installingHandler(CFileInstaller* installer, CUpdaterLog* log);
