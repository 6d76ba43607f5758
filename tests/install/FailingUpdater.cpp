// A stand-in updater that answers every request with EIO and touches no
// file, after DM_UPDATER_DELAY_MS (as when copying a large file); it creates
// the file DM_UPDATER_BUSY_MARK names when it begins a request.
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
