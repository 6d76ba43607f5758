#include "update/DownloadSettings.h"

#include <cstring>

#include <QDir>
#include <QFile>

#include "net/ServerUrl.h"
#include "storage/IniFiles.h"

const char kDefaultServerUrl[] = "http://update.velmora.org/Win32_3.3.8";

QString readServerUrl(const QString& configFilePath)
{
    const QByteArray path = configFilePath.toLocal8Bit().left(kServerUrlBufferSize - 1);
    inifiles settings(path.constData(), false);
    char buffer[kServerUrlBufferSize];
    std::memset(buffer, 0, sizeof buffer);
    settings.ReadString("Address", "Path", kDefaultServerUrl, buffer, kServerUrlBufferSize);
    const QString url = ServerUrl::fromBytes(QByteArray(buffer), ServerUrl::kSettingsAddress).text();
    return url.left(kServerUrlBufferSize - 1);
}

int readIdleTimeoutSeconds(const QString& configFilePath, int fallback)
{
    const QByteArray path = configFilePath.toLocal8Bit().left(kServerUrlBufferSize - 1);
    inifiles settings(path.constData(), false);
    const int seconds = settings.ReadInteger("Network", "IdleTimeout", fallback);
    // A day at most: the value becomes milliseconds in an int.
    return seconds > 0 && seconds <= 86400 ? seconds : fallback;
}

void clearTextFiles(const QString& folder)
{
    const QDir dir(folder);
    const QStringList names = dir.entryList({QStringLiteral("*.txt"), QStringLiteral("*.minisig")}, QDir::Files | QDir::Hidden | QDir::CaseSensitive);
    for (const QString& name : names)
        QFile::remove(dir.filePath(name));
}
