#include "update/ChosenModules.h"

#include <cstring>

#include <QFile>

#include "update/FileToDl.h"
#include "update/ModuleListParser.h"
#include "update/SaveParamDownload.h"

namespace {

bool sameVersion(const dlModule& a, const dlModule& b)
{
    return dlText(a.version) == dlText(b.version)
           && dlText(a.versionExtra) == dlText(b.versionExtra);
}

const dlModule* firstNamed(const dlListModule& list, const QByteArray& name)
{
    for (int i = 0; i < list.count; ++i) {
        if (dlText(list.modules[i].name) == name)
            return &list.modules[i];
    }
    return nullptr;
}

}  // namespace

void refreshChosenModules(const dlListModule& fresh, CFileToDl& chosen, CSaveParamDownload& store,
                          const CListedHashes* hashes)
{
    for (int i = 0; i < chosen.getModuleCount(); ++i) {
        dlModule current = emptyDlModule();
        chosen.getModuleInfo(i, current);
        const dlModule* offered = firstNamed(fresh, dlText(current.name));
        if (!offered)
            continue;
        if (!sameVersion(*offered, current)) {
            const QString local = QString::fromLocal8Bit(dlText(current.localPath));
            if (QFile::exists(local)) {
                QFile::remove(local);
                setDlText(current.localPath, QByteArray());
            }
        }
        dlModule replacement = *offered;
        std::memcpy(replacement.localPath, current.localPath, sizeof replacement.localPath);
        replacement.state = current.state;
        chosen.changeStruct(i, replacement);
        store.changeStateLastDownloadModule(replacement, dlStateToFetch,
                                            hashes ? hashes->value(replacement) : ListedHash());
    }
}

bool getNewModule(const QString& fileName, CFileToDl& chosen, CSaveParamDownload& store,
                  const ModuleListSources& sources, const CInstalledProducts& host,
                  CListedHashes* hashes)
{
    dlListModule fresh;
    parseFileList(fileName, fresh, QString(), sources, host, hashes);
    if (chosen.getModuleCount() <= 0)
        return false;
    refreshChosenModules(fresh, chosen, store, hashes);
    return true;
}
