#include "update/ListChain.h"

#include "transfer/DownloadHttp.h"
#include "update/AutoChoice.h"
#include "update/ConfigListParser.h"
#include "update/InstalledProducts.h"
#include "update/ModuleListParser.h"
#include "update/ReleaseCheck.h"
#include "update/UpdatePaths.h"
#include "update/UpdateView.h"
#include "update/UpdateWorkflow.h"

namespace {

const QString kConfigDescName = QStringLiteral("/configDesc.txt");
const QString kModuleDescName = QStringLiteral("/moduleDesc.txt");

}  // namespace

QString CListChain::configListName()
{
    return kConfigDescName;
}

QString CListChain::moduleListName()
{
    return kModuleDescName;
}

void CListChain::fetch(const QString& name, int param, int kind)
{
    flow_.DownloadFile(name, param, kind, false);
}

ModuleListSources CListChain::listSources() const
{
    std::vector<coreNameConfig>& configs = flow_.installedConfigs();
    const CAutoChoice& automatic = flow_.automatic();
    ModuleListSources sources;
    sources.configs = configs.data();
    sources.configCount = int(configs.size());
    sources.autoMode = automatic.isOn();
    sources.autoModules = automatic.moduleTable().data();
    sources.autoModuleCount = int(automatic.moduleTable().size());
    return sources;
}

void CListChain::parseModuleListFile(const QString& file, dlListModule& list,
                                     const QString& configName) const
{
    parseFileList(file, list, configName, listSources(), CInstalledProducts(flow_.link()),
                  &flow_.check().hashes());
}

void CListChain::parseConfigListFile(const QString& file, dlListModule& list) const
{
    parseConfigList(file, list, flow_.automatic().isOn(), CInstalledProducts(flow_.link()));
}

void CListChain::appendConfigurationRow(const dlModule& configuration,
                                        const QString& moduleListFile)
{
    if (!flow_.view().hasWindow())
        return;
    dlListModule modules;
    parseModuleListFile(moduleListFile, modules, dlLocalText(configuration.name));
    flow_.view().addConfigurationRow(configuration, modules);
}

void CListChain::appendModuleRow(const dlModule& record)
{
    flow_.view().addModuleRow(record,
                              getLocalPath(flow_.downloadFolder(), dlLocalText(record.descPath)));
}

void CListChain::initFrame()
{
    IUpdateView& view = flow_.view();
    const QString folder = flow_.downloadFolder();
    if (view.hasWindow()) {
        view.clearRows();
        view.setStartText(flow_.text("MD0011"));
    }
    configList_.clear();
    moduleList_.clear();
    parseConfigListFile(folder + kConfigDescName, configList_);
    parseModuleListFile(folder + kModuleDescName, moduleList_, QString());
    for (int i = 0; i < configList_.count; ++i) {
        const dlModule& configuration = configList_.modules[i];
        appendConfigurationRow(configuration,
                               getLocalPath(folder, dlLocalText(configuration.serverPath)));
    }
    for (int i = 0; i < moduleList_.count; ++i)
        appendModuleRow(moduleList_.modules[i]);

    if (view.hasWindow()) {
        view.setStatus(QString());
        view.setEnabled(IUpdateView::Tree, true);
        view.setEnabled(IUpdateView::Refresh, true);
        view.setEnabled(IUpdateView::Description, true);
        view.selectFirstRow();
        showListResultTexts();
        view.setEnabled(IUpdateView::Start, view.isSelect());
    }
    searchRunning_ = false;
    view.setBusy(false);
}

// ---------------------------------------------------------------------------
// The chain

void CListChain::getConfigDesc()
{
    // A new search shows its own rows, not after the last search's (which
    // may still be ticked from a finished installation).
    flow_.view().clearRows();
    flow_.check().hashes().clear();
    searchRunning_ = true;
    listsFetchedOnce_ = true;
    fetch(kConfigDescName, 0, CDownloadHttp::KindParseFileTxt);
}

void CListChain::getModuleDesc()
{
    fetch(kModuleDescName, 1, CDownloadHttp::KindParseFileTxt);
}

void CListChain::parseFileTxt(const QString& file, int param)
{
    if (param == 0) {
        configList_.clear();
        parseConfigListFile(file, configList_);
        if (!flow_.view().hasWindow())
            return;
        if (configList_.count == 0) {
            getModuleDesc();
            return;
        }
        configIndex_ = 0;
        fetch(dlLocalText(configList_.modules[0].descPath), 0, CDownloadHttp::KindParseFileTxt2);
        return;
    }

    moduleList_.clear();
    parseModuleListFile(file, moduleList_, QString());
    if (moduleList_.count == 0) {
        finishListChain();
        return;
    }
    moduleDescIndex_ = 0;
    fetch(dlLocalText(moduleList_.modules[0].descPath), 1, CDownloadHttp::KindParseFileTxt1);
}

void CListChain::parseFileTxt2(const QString& file, int)
{
    if (configIndex_ >= configList_.count)
        return;
    dlModule& configuration = configList_.modules[configIndex_];
    setDlText(configuration.descPath, file.toLocal8Bit());
    fetch(dlLocalText(configuration.serverPath), 0, CDownloadHttp::KindParseFileTxt1);
    ++configIndex_;
}

void CListChain::parseFileTxt1(const QString& file, int param)
{
    if (param == 0) {
        if (configIndex_ >= 1 && configIndex_ <= configList_.count)
            appendConfigurationRow(configList_.modules[configIndex_ - 1], file);
        if (configIndex_ < configList_.count)
            fetch(dlLocalText(configList_.modules[configIndex_].descPath), 0,
                  CDownloadHttp::KindParseFileTxt2);
        else
            getModuleDesc();
        return;
    }

    if (moduleDescIndex_ < moduleList_.count)
        appendModuleRow(moduleList_.modules[moduleDescIndex_]);
    ++moduleDescIndex_;
    if (moduleDescIndex_ < moduleList_.count) {
        fetch(dlLocalText(moduleList_.modules[moduleDescIndex_].descPath), 1,
              CDownloadHttp::KindParseFileTxt1);
        return;
    }
    finishListChain();
    flow_.view().selectFirstRow();
}

void CListChain::showListResultTexts()
{
    IUpdateView& view = flow_.view();
    if (!view.hasWindow())
        return;
    if (view.rowCount() > 0) {
        view.setInfo(flow_.text("MD0016Message") + QStringLiteral("\r\n")
                     + flow_.text("MD0017Message"));
        view.setStatus(QString());
    } else {
        view.setStatus(flow_.text("MD0041Message"));
        view.setInfo(flow_.text("MD0018Message") + QStringLiteral("\r\n")
                     + flow_.text("MD0041Message"));
    }
}

void CListChain::finishListChain()
{
    IUpdateView& view = flow_.view();
    showListResultTexts();
    searchRunning_ = false;
    view.setBusy(false);
    if (view.hasWindow()) {
        if (!view.isSelect())
            view.setStartText(flow_.text("MD0011"));
        view.setEnabled(IUpdateView::Tree, true);
        view.setEnabled(IUpdateView::Description, true);
        view.changeState();
    }
    emit flow_.SignalListsShown();
}
