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
constexpr int kFields = 9;
// The type of an entry that belongs to a configuration.
const QByteArray kConfigurationType = QByteArrayLiteral("2");

// Splits the fields; the eighth and the ninth run to the next comma or to
// the line's end, and the ninth is empty when the line ends before it. The
// positions are always inside the line, so the references are made directly
// rather than through midRef's range checks.
bool splitModuleLine(const QString& line, QStringRef (&fields)[kFields])
{
    int from = 0;
    for (int i = 0; i < kMandatoryFields; ++i) {
        const int comma = line.indexOf(kSeparator, from);
        if (comma < 0)
            return false;
        fields[i] = QStringRef(&line, from, comma - from);
        from = comma + 1;
    }
    for (int i = kMandatoryFields; i < kFields; ++i) {
        if (from > line.size()) {
            fields[i] = QStringRef();
            continue;
        }
        const int comma = line.indexOf(kSeparator, from);
        const int end = comma < 0 ? line.size() : comma;
        fields[i] = QStringRef(&line, from, end - from);
        from = end + 1;
    }
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
    return isNewVersionModule(major, minor, build, fourth, dlLocalText(entry.version),
                              dlLocalText(entry.versionExtra));
}

bool isOffered(const dlModule& entry, const ModuleListBasis& basis,
               const QHash<QByteArray, int>& installedByName)
{
    if (dlTextInPlace(entry.type) == kConfigurationType) {
        const coreNameConfig* config = basis.namedConfig;
        return !config || isNewerThan(entry, config->major, config->minor, config->build, basis.fourth);
    }
    const auto found = installedByName.constFind(dlTextInPlace(entry.name));
    if (found == installedByName.constEnd())
        return true;
    const coreModuleEntry& installed = basis.installed[found.value()];
    return isNewerThan(entry, installed.major, installed.minor, installed.build, installed.fourth);
}

}  // namespace

bool parseModuleLine(const QString& line, dlModule& out, ListedHash* hash)
{
    QStringRef fields[kFields];
    if (!splitModuleLine(line, fields))
        return false;
    clearDlModule(out);
    setDlLocalText(out.name, fields[0]);
    setDlLocalText(out.version, fields[1]);
    setDlLocalText(out.versionExtra, fields[2]);
    setDlLocalText(out.type, fields[3]);
    // The list gives the description's location before the file's; the
    // record keeps them the other way round.
    setDlLocalText(out.descPath, fields[4]);
    setDlLocalText(out.serverPath, fields[5]);
    setDlLocalText(out.title, fields[6]);
    const int sizeKb = fields[7].toInt(nullptr, 10);
    setDlText(out.sizeText, dlSizeText(sizeKb));
    if (hash) {
        const QByteArray digest = fields[8].toLatin1();
        *hash = ListedHash();
        if (isSha256Text(digest)) {
            hash->sha256 = digest;
            hash->sizeKb = sizeKb;
        }
    }
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

void parseModuleLines(const QStringList& lines, dlListModule& list, const ModuleListBasis& basis,
                      CListedHashes* hashes)
{
    // One look-up table per list keeps the parse linear in the list's length
    // however many modules are installed.
    const QHash<QByteArray, int> installedByName = indexByName(basis.installed, basis.installedCount);
    dlModule entry;
    ListedHash hash;
    for (const QString& line : lines) {
        if (!parseModuleLine(line, entry, hashes ? &hash : nullptr))
            return;
        if (isOffered(entry, basis, installedByName)) {
            list.append(entry);
            if (hashes)
                hashes->insert(entry, hash);
        }
    }
}

void parseFileList(const QString& fileName, dlListModule& list, const QString& configName,
                   const ModuleListSources& sources, const CInstalledProducts& host,
                   CListedHashes* hashes)
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
    parseModuleLines(lines, list, basis, hashes);
}
