// updater: installs the files the download module hands it through a shared
// segment. Started by the module as
//   updater -u "<base64 of the backup folder>" <segment key>
// and ended by the module's finished flag (see UpdaterServer.h).
#include <QDir>

#include "updater/FileInstaller.h"
#include "updater/UpdaterLog.h"
#include "updater/UpdaterOptions.h"
#include "updater/UpdaterServer.h"

namespace {

const char kLogName[] = "/updater.log";

}  // namespace

int main(int argc, char** argv)
{
    UpdaterOptions options;
    if (!parseUpdaterCommandLine(argc, argv, "updater", &options))
        return 64;

    QDir().mkpath(options.backupFolder);
    // The log lives with the backups: both say what this run changed.
    CUpdaterLog log(options.backupFolder + kLogName);
    log.write(QString("started with backup folder %1").arg(options.backupFolder));
    CFileInstaller installer(options.backupFolder, &log);
    CUpdaterServer server(options.key, installingHandler(&installer, &log), &log);
    return server.run();
}
