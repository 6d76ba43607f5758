#include "update/UpdaterProtocol.h"

#include <cstdlib>
#include <cstring>

#include "storage/RecordText.h"
#include "net/Base64.h"

const char kUpdaterEnvironmentVariable[] = "VELMORA_UPDATER";

namespace {

const char kDefaultUpdaterPath[] = "/usr/local/bin/updater";
const char kSegmentKeyPattern[] = "org.velmora.sharedmemory-%1";
constexpr int kDefaultInstallFolderType = 150;

// Folder types the host has folders for; files of any other type go to the
// default install folder.
bool hostHasFolderType(int type)
{
    return type == 0 || type == 1 || (type >= 3 && type <= 11) || (type >= 20 && type <= 22)
        || (type >= 50 && type <= 52) || (type >= 100 && type <= 103) || type == 157;
}

void writePath(char16_t (&field)[kUpdatePathUnits], const QString& path)
{
    const int units = qMin(kUpdatePathUnits, path.size());
    std::memcpy(field, path.utf16(), std::size_t(units) * sizeof(char16_t));
}

void writeRequest(umUpdateFile& segment, const QString& source, const QString& folder)
{
    std::memset(&segment, 0, sizeof segment);
    writePath(segment.source, source);
    writePath(segment.destination, folder);
}

}  // namespace

QString GetPathToUpdaterProgram()
{
    const QByteArray chosen = qgetenv(kUpdaterEnvironmentVariable);
    return chosen.isEmpty() ? QString(kDefaultUpdaterPath) : QString::fromLocal8Bit(chosen);
}

QString updaterSegmentKey(qint64 secondsSinceEpoch)
{
    return QString(kSegmentKeyPattern).arg(secondsSinceEpoch);
}

QStringList updaterArguments(const QString& backupFolder, const QString& key)
{
    const QByteArray folder = backupFolder.toLocal8Bit();
    char* encoded = nullptr;
    const int length = base64_encode(folder.constData(), unsigned(folder.size()), &encoded);
    const QString quoted = '"' + QString::fromLatin1(encoded, qMax(0, length)) + '"';
    std::free(encoded);
    return {"-u", quoted, key};
}

int installFolderType(int type)
{
    return hostHasFolderType(type) ? type : kDefaultInstallFolderType;
}

bool parseInstallType(const QByteArray& text, int* type)
{
    *type = std::atoi(text.constData());
    return *type != 0 || text == "0";
}

void writeInstallRequest(umUpdateFile& segment, const QString& source, const QString& folder)
{
    writeRequest(segment, source, folder);
}

void writeConfigCopyRequest(umUpdateFile& segment, const QString& source, const QString& folder)
{
    writeRequest(segment, source, folder);
    segment.copyConfiguration = 1;
}

void writeFinished(umUpdateFile& segment)
{
    std::memset(&segment, 0, sizeof segment);
    segment.finished = 1;
}

QString segmentPath(const char16_t (&field)[kUpdatePathUnits])
{
    return utf16FieldText(field, kUpdatePathUnits);
}
