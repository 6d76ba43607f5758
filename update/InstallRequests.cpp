#include "update/InstallRequests.h"

#include "update/UpdaterProtocol.h"

namespace {

// The type of a file that belongs to a configuration.
constexpr int kConfigurationType = 2;

}  // namespace

InstallRoute routeInstallRequest(const dlModule& record, const std::function<QString(int)>& folderOfType,
                                 UpdaterRequest* request)
{
    const QByteArray typeText = dlText(record.type);
    int type = 0;
    if (!parseInstallType(typeText, &type))
        return InstallRefused;
    if (type == kConfigurationType)
        return InstallAsConfiguration;
    const QString folder = folderOfType(installFolderType(type));
    if (folder.isEmpty())
        return InstallRefused;
    request->source = QString::fromLocal8Bit(dlText(record.localPath));
    request->destination = folder;
    request->copyConfiguration = false;
    return InstallAsFile;
}

UpdaterRequest configCopyRequest(const QString& configFilePath, const QString& copyFolder)
{
    return {configFilePath, copyFolder + "/Config", true};
}
