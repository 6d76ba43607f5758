#pragma once
// The server's module lists: one offered file per line,
//   name,version,versionExtra,type,descPath,serverPath,title,sizeKb[,sha256[,ignored...]]
// split at single commas with no quoting; spaces belong to the fields. The
// ninth field, the SHA-256 of the file as served (64 lower-case hex digits),
// goes to a CListedHashes beside the records; anything else there is ignored
// as it always was. The
// first line with fewer than seven commas ends the list: it and everything
// after it are ignored, while the lines before it count. A list is reduced to
// the entries worth offering: files not installed, or newer than installed.
#include <QByteArray>
#include <QString>
#include <QStringList>

#include "update/DlModule.h"
#include "update/FileHashes.h"
#include "protocol/UpdateRecords.h"

class CInstalledProducts;

// Takes one list line apart into a freshly parsed record (localPath and
// auxPath empty, state -1, the size formatted). False for a malformed line.
// With hash, also the ninth field and the size in kB (the hash stays empty
// when the field is not a SHA-256).
bool parseModuleLine(const QString& line, dlModule& out, ListedHash* hash = nullptr);

// The installed configuration the list is compared against, by index into the
// configuration table: the LAST entry whose name equals the requested name
// and the LAST entry marked current. The name match wins when there is one.
struct ConfigurationChoice {
    int named = -1;
    int current = -1;
    int chosen() const { return named >= 0 ? named : current; }
};
ConfigurationChoice chooseConfiguration(const coreNameConfig* configs, int count,
                                        const QByteArray& name);

// What the offered entries are compared with.
struct ModuleListBasis {
    // The installed configuration whose name matched, for entries of type "2";
    // null when no name matched (such entries are then always offered).
    const coreNameConfig* namedConfig = nullptr;
    // Fourth value of the first entry of the chosen configuration's module
    // table, passed along with configuration entries (0 for an empty table).
    int32_t fourth = 0;
    // Installed modules for the other entries; the first of a name decides.
    const coreModuleEntry* installed = nullptr;
    int installedCount = 0;
};

// Whether a parsed entry is worth offering.
bool isModuleOffered(const dlModule& entry, const ModuleListBasis& basis);

// Appends the offered entries of lines to list (which is not cleared first),
// stopping at the first malformed line. With hashes, the hash of every
// offered entry is kept there (an entry without one drops what was kept).
void parseModuleLines(const QStringList& lines, dlListModule& list, const ModuleListBasis& basis,
                      CListedHashes* hashes = nullptr);

// What the dialog knows when it parses a module list.
struct ModuleListSources {
    // Its table of installed configurations.
    const coreNameConfig* configs = nullptr;
    int configCount = 0;
    // In automatic mode ordinary modules are compared with the module table
    // the automatic run fetched at its start, not with the host's table.
    bool autoMode = false;
    const coreModuleEntry* autoModules = nullptr;
    int autoModuleCount = 0;
};

// Parses the module list in fileName against the installed configuration
// called configName (or the current one when no name matches), whose module
// table is asked from host. An unreadable file appends nothing.
void parseFileList(const QString& fileName, dlListModule& list, const QString& configName,
                   const ModuleListSources& sources, const CInstalledProducts& host,
                   CListedHashes* hashes = nullptr);
