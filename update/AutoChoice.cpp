#include "update/AutoChoice.h"

#include <QFile>

#include "storage/RecordText.h"
#include "transfer/DownloadHttp.h"
#include "update/DownloadRun.h"
#include "update/FileToDl.h"
#include "update/InstalledProducts.h"
#include "update/ListChain.h"
#include "update/ReleaseCheck.h"
#include "update/SaveParamDownload.h"
#include "update/UpdatePrompts.h"
#include "update/UpdateView.h"
#include "update/UpdateWorkflow.h"
#include "update/VersionRules.h"

void CAutoChoice::startAutoDownload()
{
    CUpdateWorkflow::Mode& mode = flow_.mode();
    IUpdateView& view = flow_.view();
    bool showWindow = false;
    flow_.store().getStartParam(autoMode_, showWindow);
    if (autoMode_ && QFile::exists(flow_.stateFilePath())) {
        std::vector<coreNameConfig>& installed = flow_.installedConfigs();
        installed = CInstalledProducts(flow_.link()).configurations();
        const int current = getCurrentConfigurationIndex(installed.data(), int(installed.size()));
        if (current < 0) {
            flow_.prompts().information(flow_.text("MD0050"), flow_.text("MD0051"));
            return;
        }
        currentConfig_ = installed[size_t(current)];
        moduleTable_ = CInstalledProducts(flow_.link()).moduleTable(currentConfig_);
        mode.autoWait = true;
        flow_.DownloadFile(CListChain::configListName(), 1, CDownloadHttp::KindAutoDownloadConfig,
                           false);
        return;
    }

    autoMode_ = false;
    CListChain& lists = flow_.lists();
    if (view.hasWindow()) {
        view.resetProgress();
        view.setBusy(true);
        view.setStatus(flow_.text("MD0038Message"));
        view.setInfo(flow_.text("MD0038Message"));
        view.setEnabled(IUpdateView::Start, false);
        view.setEnabled(IUpdateView::Refresh, false);
        lists.setSearching();
        // The window asks the server every time it opens, so that it never
        // shows lists older than the window.
        flow_.clearDownloadDir();
        lists.getConfigDesc();
        return;
    }
    if (lists.fetchedOnce()) {
        flow_.clearDownloadDir();
        lists.getConfigDesc();
    } else {
        lists.initFrame();
    }
}

void CAutoChoice::autoDownloadConfig(const QString& file)
{
    CUpdateWorkflow::Mode& mode = flow_.mode();
    dlListModule offered;
    flow_.lists().parseConfigListFile(file, offered);
    if (offered.count == 0) {
        autoMode_ = false;
        mode.autoWait = false;
        return;
    }
    const QByteArray currentName = fieldBytes(currentConfig_.name);
    for (int i = 0; i < offered.count; ++i) {
        const dlModule& configuration = offered.modules[i];
        if (dlText(configuration.name) != currentName)
            continue;
        const VersionParts version = splitVersion(dlLocalText(configuration.version));
        const bool good =
            isGoodConfigForAuto(version.major, version.minor, version.build, currentConfig_);
        flow_.DownloadFile(dlLocalText(configuration.serverPath), good ? 0 : 1,
                           CDownloadHttp::KindAutoDownloadConfigDescr, false);
        return;
    }
    mode.autoWait = false;
}

// Adds the newer of the offered files to the chosen set: configuration files
// as offered, modules checked again against the automatic run's table (a
// module the table does not know is taken, as in the list parser).
void CAutoChoice::takeOfferedForAuto(const dlListModule& offered)
{
    const QByteArray configName = fieldBytes(currentConfig_.name);
    for (int i = 0; i < offered.count; ++i) {
        dlModule record = offered.modules[i];
        bool take = dlText(record.type) == "2";
        if (!take) {
            take = true;
            for (const coreModuleEntry& installed : moduleTable_) {
                if (fieldBytes(installed.name) != dlText(record.name))
                    continue;
                take = isNewVersionModule(installed.major, installed.minor, installed.build,
                                          installed.fourth, dlLocalText(record.version),
                                          dlLocalText(record.versionExtra));
                break;
            }
        }
        if (!take)
            continue;
        setDlText(record.localPath, QByteArray());
        setDlText(record.auxPath, configName);
        record.state = dlStateAutoChosen;
        if (flow_.chosen().existModule(record) < 0)
            flow_.chosen().addToStuct(record);
    }
}

void CAutoChoice::autoDownloadConfigDescr(const QString& file, int param)
{
    CFileToDl& chosen = flow_.chosen();
    CSaveParamDownload& store = flow_.store();
    dlListModule offered;
    flow_.lists().parseModuleListFile(file, offered,
                                      QString::fromLocal8Bit(fieldBytes(currentConfig_.name)));
    if (param == 0) {
        chosen.clearStruct();
        takeOfferedForAuto(offered);
        flow_.DownloadFile(CListChain::moduleListName(), 1,
                           CDownloadHttp::KindAutoDownloadConfigDescr, false);
        return;
    }

    takeOfferedForAuto(offered);
    const int count = chosen.getModuleCount();
    if (count > 0) {
        flow_.check().forgetRun();
        store.createLastDownload(count);
        for (int i = 0; i < count; ++i) {
            dlModule record = emptyDlModule();
            chosen.getModuleInfo(i, record);
            store.saveLastDownloadModule(record, dlStateToFetch, flow_.check().hashes().value(record));
        }
        // The answer does not stop the run: the user is told, the run goes on.
        flow_.prompts().question(flow_.text("MD0020"), flow_.text("MD0021"));
        flow_.run().probeAll();
        return;
    }
    store.clearLastDownload();
    flow_.clearDownloadDir();
    flow_.view().setBusy(false);
    flow_.view().setStatus(flow_.text("MD0041Message"));
    flow_.mode().autoWait = false;
    flow_.showIdleControls();
    flow_.lists().getConfigDesc();
}
