#include "update/UpdateWorkflow.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTimer>

#include "platform/LogHelper.h"
#include "protocol/HostMessages.h"
#include "transfer/DownloadHttp.h"
#include "update/AutoChoice.h"
#include "update/DownloadRun.h"
#include "update/DownloadSettings.h"
#include "update/FileToDl.h"
#include "update/HostFolders.h"
#include "update/InstalledProducts.h"
#include "update/Installation.h"
#include "update/ReleaseCheck.h"
#include "update/ListChain.h"
#include "update/SaveParamDownload.h"
#include "update/UpdatePrompts.h"
#include "update/UpdateView.h"
#include "update/UpdaterProtocol.h"

namespace {

const char kStateFileName[] = "download.rdd";

}  // namespace

CUpdateWorkflow::CUpdateWorkflow(Environment environment) : env_(std::move(environment))
{
    chosen_ = std::make_unique<CFileToDl>();
    timer_ = new QTimer(this);
    connect(timer_, &QTimer::timeout, this, &CUpdateWorkflow::startTimerIsOutTime);
    lists_ = std::make_unique<CListChain>(*this);
    run_ = std::make_unique<CDownloadRun>(*this);
    automatic_ = std::make_unique<CAutoChoice>(*this);
    installation_ = std::make_unique<CInstallation>(*this);
    check_ = std::make_unique<CReleaseCheck>();
}

CUpdateWorkflow::~CUpdateWorkflow() = default;

QString CUpdateWorkflow::text(const char* key) const
{
    return env_.text ? env_.text(key) : QString::fromLatin1(key);
}

void CUpdateWorkflow::askConnectState()
{
    mwiSetStateConnect state{1};
    const bool answered =
        env_.link.send(HostMsg::QueryConnectState, reinterpret_cast<intptr_t>(&state)) == 0;
    connectState_ = env_.startOffline ? 0 : (answered ? state.state : 1);
}

void CUpdateWorkflow::askInstalledConfigurations()
{
    installedConfigs_ = CInstalledProducts(env_.link).configurations();
}

void CUpdateWorkflow::setUpFolders()
{
    downloadDir_ =
        GetPathByFolderType(env_.link.sendCallback(), env_.link.hostPointer(), vfDownload);
    if (QDir(downloadDir_).exists())
        clearDownloadDir();
    else
        QDir().mkdir(downloadDir_);
    configFilePath_ =
        GetPathByFolderType(env_.link.sendCallback(), env_.link.hostPointer(), vfConfiguration)
        + QStringLiteral("/download.cfg");
    configFileExists_ = QFile::exists(configFilePath_);
    serverUrl_ = readServerUrl(configFilePath_);

    http_ = std::make_unique<CDownloadHttp>(this, serverUrl_);
    http_->setIdleTimeout(
        readIdleTimeoutSeconds(configFilePath_, CDownloadHttp::kDefaultIdleTimeoutSeconds) * 1000);
    store_ = std::make_unique<CSaveParamDownload>(downloadDir_, env_.link);
    check_->load(configFilePath_, downloadDir_);
}

QString CUpdateWorkflow::stateFilePath() const
{
    return downloadDir_ + QLatin1Char('/') + QLatin1String(kStateFileName);
}

QString CUpdateWorkflow::backupFolder() const
{
    return downloadDir_ + QStringLiteral("/Backup");
}

void CUpdateWorkflow::clearDownloadDir()
{
    clearTextFiles(downloadDir_);
}

void CUpdateWorkflow::DownloadFile(const QString& name, int param, int kind, bool progress)
{
    awaitingSignature_ = false;
    requestedName_ = name;
    requestedParam_ = param;
    requestedKind_ = kind;
    if (isOffLine())
        return;
    http_->getFile(name, downloadDir_, param, kind, 0, progress);
}

void CUpdateWorkflow::afterSignature(const QString& file,
                                     const std::function<void(const QString&)>& deliver)
{
    if (!check_->signaturesRequired())
        return deliver(file);
    if (awaitingSignature_) {
        awaitingSignature_ = false;
        QString reason;
        if (!check_->acceptList(heldList_, file, &reason))
            view().setStatus(QFileInfo(heldList_).fileName() + QStringLiteral(": ") + reason);
        const std::function<void(const QString&)> held = std::move(heldDelivery_);
        return held(heldList_);
    }
    // A list the server does not have offers nothing; there is nothing to check.
    if (!QFile::exists(file))
        return deliver(file);
    awaitingSignature_ = true;
    heldList_ = file;
    heldDelivery_ = deliver;
    if (!isOffLine())
        http_->getFile(CReleaseCheck::signatureName(requestedName_), downloadDir_, requestedParam_,
                       requestedKind_, 0, false);
}

// ---------------------------------------------------------------------------
// The window

void CUpdateWorkflow::windowOpened()
{
    if (mode_.idle && !mode_.autoRun && !mode_.autoWait && !lists_->searching())
        automatic_->startAutoDownload();
}

// The window shows what the workflow is doing when it opens.
void CUpdateWorkflow::showFirstLook()
{
    IUpdateView& v = view();
    const bool runShown = !mode_.idle || mode_.autoRun;
    if (runShown) {
        v.setEnabled(IUpdateView::Stop, true);
        v.setStatus(text("MD0039Message"));
        v.showProgress(run_->totalBytes());
    } else if (mode_.autoWait) {
        v.setEnabled(IUpdateView::Stop, true);
        v.setStatus(text("MD0047"));
    } else {
        v.setEnabled(IUpdateView::Stop, false);
        v.setStatus(text("MD0038Message"));
    }
    const bool busy = runShown || mode_.autoWait;
    v.setEnabled(IUpdateView::Tree, !busy);
    v.setEnabled(IUpdateView::Description, !busy);
}

void CUpdateWorkflow::showIdleControls()
{
    IUpdateView& v = view();
    if (!v.hasWindow())
        return;
    v.setEnabled(IUpdateView::Tree, true);
    v.setEnabled(IUpdateView::Description, true);
    v.setEnabled(IUpdateView::Refresh, true);
    v.setEnabled(IUpdateView::Stop, false);
    v.setStartText(text("MD0011"));
    v.changeState();
}

// ---------------------------------------------------------------------------
// Connection state, timer and continuation

bool CUpdateWorkflow::isOffLine()
{
    return connectState_ == 0;
}

void CUpdateWorkflow::getProxyData(mwiProxyState& state)
{
    if (env_.proxyData)
        env_.proxyData(state);
}

void CUpdateWorkflow::setStateConnect(int state)
{
    if (state == connectState_)
        return;
    connectState_ = state;
    if (state == 0) {
        // A run cut off by going off-line goes on when the host is back
        // on-line, from what the state file says it still lacks.
        if (http_->abort() == 0 && (!mode_.idle || mode_.autoRun || mode_.autoWait))
            mode_.pendingContinue = true;
        return;
    }
    if (mode_.pendingContinue) {
        mode_.pendingContinue = false;
        continueDownload();
    }
}

void CUpdateWorkflow::startTimer()
{
    if (timer_->isActive())
        timer_->stop();
    store_->getDelayAutoStart(autoDelay_);
    timer_->setSingleShot(true);
    timer_->start(autoDelay_ * 1000);
}

void CUpdateWorkflow::startTimerIsOutTime()
{
    if (timer_->isActive())
        timer_->stop();
    continueDownload();
}

void CUpdateWorkflow::continueDownload()
{
    if (isOffLine()) {
        mode_.pendingContinue = true;
        return;
    }
    const int stored = store_->getCountLastDownloadModule();
    if (stored < 1) {
        mode_.autoRun = false;
        automatic_->startAutoDownload();
        return;
    }
    if (isTornRun(stored)) {
        // A run is written as its count, then one record at a time; a
        // terminal killed in between leaves fewer records than the count.
        // Going on with those would install part of the run and report the
        // rest installed, so the run is chosen afresh.
        LogHelper::ShowLogInfo(logTypeError, logLevel4,
                               QStringLiteral("The stored run lacks records (a write was cut off); choosing again"));
        store_->clearLastDownload();
        mode_.autoRun = false;
        automatic_->startAutoDownload();
        return;
    }
    mode_.autoRun = true;
    if (run_->fetchStoredRecords())
        return;
    if (store_->getCountStateLastDownloadModule(dlStateFetched) == 0) {
        store_->getCountStateLastDownloadModule(dlStateInstalled);
        store_->clearLastDownload();
        mode_.autoRun = false;
        automatic_->startAutoDownload();
        return;
    }
    changeModules();
}

bool CUpdateWorkflow::isTornRun(int stored)
{
    int records = 0;
    for (int state : {dlStateAutoChosen, dlStateToFetch, dlStateFetched, dlStateInstalled, dlStateFailed})
        records += qMax(store_->getCountStateLastDownloadModule(state), 0);
    return records < stored;
}

// ---------------------------------------------------------------------------
// Installation

void CUpdateWorkflow::changeModules()
{
    const int fetched = store_->getCountStateLastDownloadModule(dlStateFetched);
    LogHelper::ShowLogInfo(logTypeMessage, logLevel2,
                           QStringLiteral("Download complete: %1 file(s) ready to install")
                               .arg(fetched));
    emit SignalInstallationStarts(fetched);
    const QString updater = GetPathToUpdaterProgram();
    if (fetched < 1 && !check_->refusals().isEmpty()) {
        // Every file of the run was refused: nothing to install, the report
        // says which and why.
        installation_->report(0);
        searchAgain(0);
        return;
    }
    if (!QFile::exists(updater) || fetched < 1) {
        LogHelper::ShowLogInfo(logTypeError, logLevel4,
                               QStringLiteral("Cannot install: updater \"%1\" %2, %3 file(s) fetched")
                                   .arg(updater,
                                        QFile::exists(updater) ? QStringLiteral("found")
                                                               : QStringLiteral("missing"))
                                   .arg(fetched));
        prompts().critical(text("MD0050"), text("MD0053"));
        emit SignalInstallationEnded(-1);
        return;
    }

    bool cancelled = false;
    const int result = prompts().runInstallation(cancelled);
    if (cancelled) {
        LogHelper::ShowLogInfo(logTypeMessage, logLevel2, QStringLiteral("Installation cancelled"));
        view().setBusy(false);
        emit SignalInstallationEnded(-1);
        return;
    }
    if (result > 0)
        installation_->report(result);
    LogHelper::ShowLogInfo(logTypeMessage, logLevel2,
                           QStringLiteral("Installation ended: %1").arg(result));
    searchAgain(result);
}

void CUpdateWorkflow::searchAgain(int installationResult)
{
    if (view().hasWindow()) {
        clearDownloadDir();
        lists_->getConfigDesc();
    } else {
        lists_->initFrame();
    }
    view().setBusy(false);
    emit SignalInstallationEnded(installationResult);
}

int CUpdateWorkflow::installationWork(const std::function<void(int, int)>& range,
                                      const std::function<void(int)>& value,
                                      const std::function<bool()>& stopRequested)
{
    return installation_->handOver(range, value, stopRequested);
}

// ---------------------------------------------------------------------------
// Completion calls of the HTTP client

bool CUpdateWorkflow::hasWindow()
{
    return view().hasWindow();
}

void CUpdateWorkflow::showStatusMessage(const QString& message, int timeoutMs)
{
    view().setStatus(message, timeoutMs);
}

void CUpdateWorkflow::addBytesOnDisk(long bytes)
{
    run_->addBytesOnDisk(bytes);
}

void CUpdateWorkflow::setProgress(int done)
{
    run_->setProgress(done);
}

void CUpdateWorkflow::getSizeFile(long size)
{
    run_->getSizeFile(size);
}

void CUpdateWorkflow::parseFileTxt(QString file, int param)
{
    afterSignature(file, [this, param](const QString& list) { lists_->parseFileTxt(list, param); });
}

void CUpdateWorkflow::parseFileTxt1(QString file, int param)
{
    afterSignature(file, [this, param](const QString& list) { lists_->parseFileTxt1(list, param); });
}

void CUpdateWorkflow::parseFileTxt2(QString file, int param)
{
    afterSignature(file, [this, param](const QString& list) { lists_->parseFileTxt2(list, param); });
}

void CUpdateWorkflow::downloadModule(QString file, bool notFound)
{
    run_->downloadModule(file, notFound);
}

void CUpdateWorkflow::getNewModule(QString file)
{
    afterSignature(file, [this](const QString& list) { run_->getNewModule(list); });
}

void CUpdateWorkflow::autoDownloadConfig(QString file)
{
    afterSignature(file, [this](const QString& list) { automatic_->autoDownloadConfig(list); });
}

void CUpdateWorkflow::autoDownloadConfigDescr(QString file, int param)
{
    afterSignature(file, [this, param](const QString& list) {
        automatic_->autoDownloadConfigDescr(list, param);
    });
}
