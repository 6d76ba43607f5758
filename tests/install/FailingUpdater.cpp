// A stand-in updater that speaks the segment protocol but answers every
// request with EIO and touches no file: the module side must cope with an
// updater that fails everything. DM_UPDATER_DELAY_MS makes it take that long
// over every request first, as an updater copying a large file does, and
// DM_UPDATER_BUSY_MARK names a file it creates when it begins a request.
#include <cerrno>
#include <cstdlib>

#include <QFile>
#include <QThread>

#include "updater/UpdaterOptions.h"
#include "updater/UpdaterServer.h"

int main(int argc, char** argv)
{
    UpdaterOptions options;
    if (!parseUpdaterCommandLine(argc, argv, "failing_updater", &options))
        return 64;
    const char* delay = std::getenv("DM_UPDATER_DELAY_MS");
    const unsigned long delayMs = delay ? std::strtoul(delay, nullptr, 10) : 0;
    const QString busyMark = QFile::decodeName(qgetenv("DM_UPDATER_BUSY_MARK"));
    CUpdaterServer server(
        options.key,
        [delayMs, busyMark](const umUpdateFile&) {
            if (!busyMark.isEmpty()) {
                QFile mark(busyMark);
                mark.open(QIODevice::WriteOnly);
            }
            QThread::msleep(delayMs);
            return EIO;
        },
        nullptr);
    return server.run();
}
