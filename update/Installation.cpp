#include "update/Installation.h"

#include <atomic>
#include <cstring>
#include <thread>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QThread>
#include <QVector>

#include "platform/LogHelper.h"
#include "protocol/DialogRecords.h"
#include "protocol/HostMessages.h"
#include "storage/RecordText.h"
#include "update/HostFolders.h"
#include "update/InstallRequests.h"
#include "update/InstalledProducts.h"
#include "update/ReleaseCheck.h"
#include "update/SaveParamDownload.h"
#include "update/Unpack.h"
#include "update/UpdatePrompts.h"
#include "update/UpdaterProtocol.h"
#include "update/UpdaterSession.h"
#include "update/UpdateWorkflow.h"
#include "update/VersionRules.h"

namespace {


}  // namespace

template <class F>
void CInstallation::onWorkflowThread(F f)
{
    if (QThread::currentThread() == flow_.thread())
        f();
    else
        QMetaObject::invokeMethod(&flow_, f, Qt::BlockingQueuedConnection);
}

int CInstallation::handOver(const std::function<void(int, int)>& range,
                            const std::function<void(int)>& value,
                            const std::function<bool()>& stopRequested)
{
    CSaveParamDownload& store = flow_.store();
    const CHostLink link = flow_.link();
    int configIndex = -1;
    int total = 0;
    int count = 0;
    std::vector<dlModule> records;
    onWorkflowThread([&] {
        std::vector<coreNameConfig>& installed = flow_.installedConfigs();
        configIndex = getCurrentConfigurationIndex(installed.data(), int(installed.size()));
        total = store.getCountLastDownloadModule();
        records = store.getLastDownloadModules(dlStateFetched);
        count = int(records.size());
        installCount_ = count;
    });
    if (count < 1)
        return count;
    QDir().mkpath(flow_.backupFolder());

    std::vector<bool> reportedAtPrepare(records.size(), false);
    int lastServedError = 0;  // the updater's answer to the last request it served
    CUpdaterSession::Hooks hooks;
    hooks.range = [&range](int minimum, int maximum) {
        if (range)
            range(minimum, maximum);
    };
    hooks.value = [&value](int done) {
        if (value)
            value(done);
    };
    hooks.prepare = [&](int index, UpdaterRequest& request) {
        dlModule& record = records[size_t(index)];
        const bool unpacked = unzipDownloadedModule(record, [&](const dlModule& done, int state) {
            onWorkflowThread([&] { store.changeStateLastDownloadModule(done, state); });
        });
        if (!unpacked && discardPackedLeftover(record)) {
            // A download that does not unpack whole is not a module: it is
            // recorded as still to fetch, and the next run fetches it again.
            onWorkflowThread([&] { store.changeStateLastDownloadModule(record, dlStateToFetch); });
            return CUpdaterSession::Skip;
        }
        const auto folderOfType = [&](int folderType) {
            QString folder;
            onWorkflowThread([&] {
                folder = GetPathByFolderType(link.sendCallback(), link.hostPointer(), VM_FOLDERS(folderType));
            });
            return folder;
        };
        switch (routeInstallRequest(record, folderOfType, &request)) {
        case InstallRefused:
            return CUpdaterSession::Fail;
        case InstallAsFile:
            return CUpdaterSession::Send;
        case InstallAsConfiguration: {
            const QString local = dlLocalText(record.localPath);
            if (!QFile::exists(local)) {
                // A configuration file that is not there is passed over, and
                // the next round reports it as done unless the updater's last
                // answer was an error: so it leaves state 2, the report's
                // count adds up and the stored run ends.
                if (lastServedError == 0)
                    onWorkflowThread([&] { setInfoAboutSuccessModuleUpdate(true, record, configIndex); });
                return CUpdaterSession::Skip;
            }
            onWorkflowThread([&] {
                coreConfigFileArrived arrived;
                std::memset(&arrived, 0, sizeof arrived);
                copyToField(arrived.path, dlText(record.localPath));
                link.send(HostMsg::ConfigFileArrived, reinterpret_cast<intptr_t>(&arrived));
                QFile::remove(local);
                setInfoAboutSuccessModuleUpdate(true, record, configIndex);
                // The host is asked for the copy folder first, then for the
                // configuration's file.
                const QString copyFolder =
                    GetPathByFolderType(link.sendCallback(), link.hostPointer(), vfConfigCopy);
                // "NameConfig" names the configuration the file belongs to
                // (a configuration list's record carries its own name there,
                // the automatic run's the configuration's); a record chosen
                // by hand from a module list has none, and its name is the
                // configuration's.
                const QByteArray configuration =
                    dlText(record.auxPath).isEmpty() ? dlText(record.name) : dlText(record.auxPath);
                request = configCopyRequest(
                    CInstalledProducts(link).GetPathToConfigFile(QString::fromLocal8Bit(configuration)),
                    copyFolder);
            });
            reportedAtPrepare[size_t(index)] = true;
            return CUpdaterSession::Send;
        }
        }
        return CUpdaterSession::Fail;
    };
    hooks.served = [&](int index, int error) {
        lastServedError = error;
        if (error != 0 || reportedAtPrepare[size_t(index)])
            return;
        onWorkflowThread([&] {
            setInfoAboutSuccessModuleUpdate(true, records[size_t(index)], configIndex);
        });
    };

    QVector<UpdaterRequest> requests(int(records.size()));
    CUpdaterSession session(GetPathToUpdaterProgram(), flow_.backupFolder(), requests, hooks);
    std::atomic<bool> done{false};
    // The session polls its own stop flag; a watcher passes the caller's on.
    std::thread stopWatcher([&] {
        while (!done) {
            if (stopRequested && stopRequested()) {
                session.requestStop();
                return;
            }
            QThread::msleep(20);
        }
    });
    const CUpdaterSession::Result outcome = session.run();
    done = true;
    stopWatcher.join();
    if (outcome != CUpdaterSession::Finished && outcome != CUpdaterSession::Cancelled
        && outcome != CUpdaterSession::LockFailed) {
        LogHelper::ShowLogInfo(logTypeError, logLevel4,
                               QStringLiteral("Installation failed: ") + session.errorString());
        return -1;
    }

    onWorkflowThread([&] {
        for (const dlModule& record : store.getLastDownloadModules(dlStateFailed))
            setInfoAboutSuccessModuleUpdate(false, record, configIndex);
    });
    return total;
}

void CInstallation::setInfoAboutSuccessModuleUpdate(bool success, const dlModule& record,
                                                    int configIndex)
{
    flow_.store().changeStateLastDownloadModule(record, dlStateInstalled);
    const std::vector<coreNameConfig>& installed = flow_.installedConfigs();
    const QByteArray type = dlText(record.type);
    if (configIndex < 0 || configIndex >= int(installed.size()) || !success
        || (type != "0" && type != "1"))
        return;
    if (dlText(record.name) != fieldBytes(installed[size_t(configIndex)].name))
        return;
    const VersionParts version = splitVersion(QString::fromLocal8Bit(dlText(record.version)));
    coreModuleUpdated updated;
    std::memset(&updated, 0, sizeof updated);
    copyToField(updated.fileName, QFileInfo(dlLocalText(record.localPath)).fileName().toLocal8Bit());
    updated.major = version.major;
    updated.minor = version.minor;
    updated.build = version.build;
    flow_.link().send(HostMsg::ModuleUpdated, reinterpret_cast<intptr_t>(&updated));
}

bool CInstallation::moveFiles(const QString& source, const QString& destination,
                              const QString& backup)
{
    const QString name = QFileInfo(source).fileName();
    const QString target = QDir(destination).filePath(name);
    if (QFile::exists(target)) {
        QDir().mkpath(backup);
        const QString kept = QDir(backup).filePath(name);
        QFile::remove(kept);
        if (!QFile::copy(target, kept))
            return false;
        QFile::remove(target);
    }
    return QFile::rename(source, target) || (QFile::copy(source, target) && QFile::remove(source));
}

void CInstallation::report(int count)
{
    CSaveParamDownload& store = flow_.store();
    if (store.getCountStateLastDownloadModule(dlStateInstalled) != count)
        return;
    // A refused file went the way of a failed one (installed in the state
    // file, untold to the host); the report lists it apart, with its reason.
    CReleaseCheck& check = flow_.check();
    std::vector<dlModule> stored(size_t(qMax(count, 0)), emptyDlModule());
    if (count > 0)
        store.getLastDownloadModule(dlStateInstalled, count, stored.data());
    std::vector<dlModule> installed;
    for (const dlModule& record : stored)
        if (!check.isRefused(record))
            installed.push_back(record);
    flow_.prompts().showReport(installed, check.refusals());
    check.forgetRun();
    store.clearLastDownload();
    flow_.askInstalledConfigurations();
}
