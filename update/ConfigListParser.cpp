#include "update/ConfigListParser.h"

#include <cstring>

#include "storage/RecordText.h"
#include "update/InstalledProducts.h"
#include "update/ListFile.h"
#include "update/VersionRules.h"

namespace {

constexpr QChar kSeparator = QLatin1Char(',');
constexpr int kSeparatedFields = 4;
constexpr int kFields = 5;

// Splits four fields at commas; the fifth is the rest of the line. The
// positions are always inside the line, so the references are made directly
// rather than through midRef's range checks.
bool splitConfigLine(const QString& line, QStringRef (&fields)[kFields])
{
    int from = 0;
    for (int i = 0; i < kSeparatedFields; ++i) {
        const int comma = line.indexOf(kSeparator, from);
        if (comma < 0)
            return false;
        fields[i] = QStringRef(&line, from, comma - from);
        from = comma + 1;
    }
    fields[kSeparatedFields] = QStringRef(&line, from, line.size() - from);
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
    clearDlModule(out);
    setDlLocalText(out.name, fields[0]);
    std::memcpy(out.auxPath, out.name, sizeof out.auxPath);
    setDlLocalText(out.version, fields[1]);
    setDlLocalText(out.serverPath, fields[2]);
    setDlLocalText(out.descPath, fields[3]);
    setDlLocalText(out.title, fields[4]);
    return true;
}

bool isConfigOffered(const dlModule& offered, const coreNameConfig* installed, int installedCount,
                     bool autoMode)
{
    const coreNameConfig* found = findInstalled(dlTextInPlace(offered.name), installed, installedCount);
    if (!found)
        return true;
    const VersionParts version = splitVersion(dlLocalText(offered.version));
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
