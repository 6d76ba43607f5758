#pragma once
// Bringing the chosen-for-download set up to date when a run is continued:
// the module list is fetched again and every chosen record takes over what
// the server offers now.
#include <QString>

#include "update/DlModule.h"

class CFileToDl;
class CListedHashes;
class CInstalledProducts;
class CSaveParamDownload;
struct ModuleListSources;

// For each chosen record, the first fresh record of the same name replaces
// it, keeping the chosen record's localPath and state, and is stored in the
// download state as still to be fetched. When the version or versionExtra
// differs, the partly downloaded local file of the old version is deleted
// first (and localPath cleared), so that the new version is not resumed onto
// it. Chosen records the fresh list lacks stay as they are. With hashes (the
// fresh list's), each replacement's hash is stored with it.
void refreshChosenModules(const dlListModule& fresh, CFileToDl& chosen, CSaveParamDownload& store,
                          const CListedHashes* hashes = nullptr);

// Parses the module list in fileName against the current configuration and
// refreshes the chosen set with it. True when the set holds records: the
// caller then starts the size query of record 0's serverPath. With hashes,
// the list's hashes are kept there and in the state file.
bool getNewModule(const QString& fileName, CFileToDl& chosen, CSaveParamDownload& store,
                  const ModuleListSources& sources, const CInstalledProducts& host,
                  CListedHashes* hashes = nullptr);
