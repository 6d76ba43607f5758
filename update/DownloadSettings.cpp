#include "update/DownloadSettings.h"

#include <cstring>

#include <QDir>
#include <QFile>

#include "storage/IniFiles.h"

const char kDefaultServerUrl[] = "http://update.velmora.org/Win32_3.3.8";

QByteArray normalizeServerUrl(const QByteArray& value)
{
    QByteArray url = value;
    if (!url.toLower().startsWith("http://"))
        url.prepend("http://");
    return url.left(kServerUrlBufferSize - 1);
}

QString readServerUrl(const QString& configFilePath)
{
    const QByteArray path = configFilePath.toLocal8Bit().left(kServerUrlBufferSize - 1);
    inifiles settings(path.constData(), false);
    char buffer[kServerUrlBufferSize];
    std::memset(buffer, 0, sizeof buffer);
    settings.ReadString("Address", "Path", kDefaultServerUrl, buffer, kServerUrlBufferSize);
    return QString::fromLatin1(normalizeServerUrl(QByteArray(buffer)));
}

void clearTextFiles(const QString& folder)
{
    const QDir dir(folder);
    const QStringList names = dir.entryList({QStringLiteral("*.txt")}, QDir::Files | QDir::Hidden | QDir::CaseSensitive);
    for (const QString& name : names)
        QFile::remove(dir.filePath(name));
}
