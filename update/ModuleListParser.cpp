#include "update/ModuleListParser.h"

#include <vector>

#include <QHash>

#include "storage/RecordText.h"
#include "update/InstalledProducts.h"
#include "update/ListFile.h"
#include "update/VersionRules.h"

namespace {

constexpr QChar kSeparator = QLatin1Char(',');
constexpr int kMandatoryFields = 7;
constexpr int kFields = 8;
// The type of an entry that belongs to a configuration.
const QByteArray kConfigurationType = QByteArrayLiteral("2");

// Splits the fields; the eighth runs to the next comma or to the line's end.
bool splitModuleLine(const QString& line, QStringRef (&fields)[kFields])
{
    int from = 0;
    for (int i = 0; i < kMandatoryFields; ++i) {
        const int comma = line.indexOf(kSeparator, from);
        if (comma < 0)
            return false;
        fields[i] = line.midRef(from, comma - from);
        from = comma + 1;
    }
    const int comma = line.indexOf(kSeparator, from);
    fields[kMandatoryFields] = comma < 0 ? line.midRef(from) : line.midRef(from, comma - from);
    return true;
}

// First index of each installed module name.
QHash<QByteArray, int> indexByName(const coreModuleEntry* entries, int count)
{
    QHash<QByteArray, int> index;
    index.reserve(count);
    for (int i = 0; i < count; ++i) {
        const QByteArray name = fieldBytes(entries[i].name);
        if (!index.contains(name))
            index.insert(name, i);
    }
    return index;
}

bool isNewerThan(const dlModule& entry, int major, int minor, int build, int fourth)
{
    return isNewVersionModule(major, minor, build, fourth, QString::fromLocal8Bit(dlText(entry.version)),
                              QString::fromLocal8Bit(dlText(entry.versionExtra)));
}

bool isOffered(const dlModule& entry, const ModuleListBasis& basis,
               const QHash<QByteArray, int>& installedByName)
{
    if (dlText(entry.type) == kConfigurationType) {
        const coreNameConfig* config = basis.namedConfig;
        return !config || isNewerThan(entry, config->major, config->minor, config->build, basis.fourth);
    }
    const auto found = installedByName.constFind(dlText(entry.name));
    if (found == installedByName.constEnd())
        return true;
    const coreModuleEntry& installed = basis.installed[found.value()];
    return isNewerThan(entry, installed.major, installed.minor, installed.build, installed.fourth);
}

}  // namespace

bool parseModuleLine(const QString& line, dlModule& out)
{
    QStringRef fields[kFields];
    if (!splitModuleLine(line, fields))
        return false;
    out = emptyDlModule();
    setDlText(out.name, fields[0].toLocal8Bit());
    setDlText(out.version, fields[1].toLocal8Bit());
    setDlText(out.versionExtra, fields[2].toLocal8Bit());
    setDlText(out.type, fields[3].toLocal8Bit());
    // The list gives the description's location before the file's; the
    // record keeps them the other way round.
    setDlText(out.descPath, fields[4].toLocal8Bit());
    setDlText(out.serverPath, fields[5].toLocal8Bit());
    setDlText(out.title, fields[6].toLocal8Bit());
    setDlText(out.sizeText, dlSizeText(fields[7].toInt(nullptr, 10)));
    return true;
}

ConfigurationChoice chooseConfiguration(const coreNameConfig* configs, int count,
                                        const QByteArray& name)
{
    ConfigurationChoice choice;
    for (int i = 0; configs && i < count; ++i) {
        if (fieldBytes(configs[i].name) == name)
            choice.named = i;
        if (configs[i].current == 1)
            choice.current = i;
    }
    return choice;
}

bool isModuleOffered(const dlModule& entry, const ModuleListBasis& basis)
{
    return isOffered(entry, basis, indexByName(basis.installed, basis.installedCount));
}

void parseModuleLines(const QStringList& lines, dlListModule& list, const ModuleListBasis& basis)
{
    // One look-up table per list keeps the parse linear in the list's length
    // however many modules are installed.
    const QHash<QByteArray, int> installedByName = indexByName(basis.installed, basis.installedCount);
    dlModule entry;
    for (const QString& line : lines) {
        if (!parseModuleLine(line, entry))
            return;
        if (isOffered(entry, basis, installedByName))
            list.append(entry);
    }
}

void parseFileList(const QString& fileName, dlListModule& list, const QString& configName,
                   const ModuleListSources& sources, const CInstalledProducts& host)
{
    const ConfigurationChoice choice =
        chooseConfiguration(sources.configs, sources.configCount, configName.toLocal8Bit());
    std::vector<coreModuleEntry> hostTable;
    if (choice.chosen() >= 0)
        hostTable = host.moduleTable(sources.configs[choice.chosen()]);

    QStringList lines;
    if (!readListLines(fileName, lines))
        return;

    ModuleListBasis basis;
    basis.namedConfig = choice.named >= 0 ? &sources.configs[choice.named] : nullptr;
    basis.fourth = hostTable.empty() ? 0 : hostTable.front().fourth;
    if (sources.autoMode) {
        basis.installed = sources.autoModules;
        basis.installedCount = sources.autoModuleCount;
    } else {
        basis.installed = hostTable.data();
        basis.installedCount = int(hostTable.size());
    }
    parseModuleLines(lines, list, basis);
}
