#include "update/ConfigListParser.h"

#include "storage/RecordText.h"
#include "update/InstalledProducts.h"
#include "update/ListFile.h"
#include "update/VersionRules.h"

namespace {

constexpr QChar kSeparator = QLatin1Char(',');
constexpr int kSeparatedFields = 4;
constexpr int kFields = 5;

// Splits four fields at commas; the fifth is the rest of the line.
bool splitConfigLine(const QString& line, QStringRef (&fields)[kFields])
{
    int from = 0;
    for (int i = 0; i < kSeparatedFields; ++i) {
        const int comma = line.indexOf(kSeparator, from);
        if (comma < 0)
            return false;
        fields[i] = line.midRef(from, comma - from);
        from = comma + 1;
    }
    fields[kSeparatedFields] = line.midRef(from);
    return true;
}

const coreNameConfig* findInstalled(const QByteArray& name, const coreNameConfig* installed,
                                    int count)
{
    for (int i = 0; installed && i < count; ++i) {
        if (fieldBytes(installed[i].name) == name)
            return &installed[i];
    }
    return nullptr;
}

}  // namespace

bool parseConfigLine(const QString& line, dlModule& out)
{
    QStringRef fields[kFields];
    if (!splitConfigLine(line, fields))
        return false;
    out = emptyDlModule();
    const QByteArray name = fields[0].toLocal8Bit();
    setDlText(out.name, name);
    setDlText(out.auxPath, name);
    setDlText(out.version, fields[1].toLocal8Bit());
    setDlText(out.serverPath, fields[2].toLocal8Bit());
    setDlText(out.descPath, fields[3].toLocal8Bit());
    setDlText(out.title, fields[4].toLocal8Bit());
    return true;
}

bool isConfigOffered(const dlModule& offered, const coreNameConfig* installed, int installedCount,
                     bool autoMode)
{
    const coreNameConfig* found = findInstalled(dlText(offered.name), installed, installedCount);
    if (!found)
        return true;
    const VersionParts version = splitVersion(QString::fromLocal8Bit(dlText(offered.version)));
    if (autoMode || found->current == 1)
        return isGoodConfigForAuto(version.major, version.minor, version.build, *found);
    return version.major > found->major || version.minor > found->minor
           || version.build > found->build;
}

void parseConfigLines(const QStringList& lines, dlListModule& list, const coreNameConfig* installed,
                      int installedCount, bool autoMode)
{
    dlModule entry;
    for (const QString& line : lines) {
        if (!parseConfigLine(line, entry))
            return;
        if (isConfigOffered(entry, installed, installedCount, autoMode))
            list.append(entry);
    }
}

void parseConfigList(const QString& fileName, dlListModule& list, bool autoMode,
                     const CInstalledProducts& host)
{
    QStringList lines;
    if (!readListLines(fileName, lines))
        return;
    const std::vector<coreNameConfig> installed = host.configurations();
    parseConfigLines(lines, list, installed.data(), int(installed.size()), autoMode);
}
