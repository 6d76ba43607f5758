#include "update/DownloadRun.h"

#include <cstring>

#include <QFile>
#include <QFileInfo>

#include "protocol/HostMessages.h"
#include "protocol/DialogRecords.h"
#include "storage/RecordText.h"
#include "transfer/DownloadHttp.h"
#include "update/AutoChoice.h"
#include "update/ChosenModules.h"
#include "update/FileToDl.h"
#include "update/InstalledProducts.h"
#include "update/ListChain.h"
#include "update/ModuleListParser.h"
#include "update/ReleaseCheck.h"
#include "update/SaveParamDownload.h"
#include "update/UpdatePaths.h"
#include "update/UpdatePrompts.h"
#include "update/UpdateView.h"
#include "update/UpdateWorkflow.h"
#include "update/VersionRules.h"

namespace {

// The size of a file already complete on disk, taken off the run's total.
int fileSizeOnDisk(const QString& path)
{
    const QFileInfo info(path);
    return info.exists() ? int(qMin<qint64>(info.size(), INT32_MAX)) : 0;
}

// A file on disk is complete only at the size the server reported for it; a
// partial file (a paused or cut fetch) is resumed, and with no size reported
// nothing on disk can be trusted.
bool isCompleteOnDisk(const QString& path, long probedSize)
{
    return probedSize > 0 && !path.isEmpty() && QFileInfo(path).size() == probedSize;
}

}  // namespace

// ---------------------------------------------------------------------------
// Probe every size, record the run, fetch one file after another

void CDownloadRun::startDownload()
{
    CFileToDl& chosen = flow_.chosen();
    if (moduleIndex_ == 0) {
        for (dlModule record : flow_.view().checkedRecords()) {
            setDlText(record.localPath,
                      getLocalPath(flow_.downloadFolder(), dlLocalText(record.serverPath)).toLocal8Bit());
            if (chosen.existModule(record) < 0)
                chosen.addToStuct(record);
        }
        if (chosen.getModuleCount() > 0)
            probeAll();
        return;
    }
    if (chosen.getModuleCount() > 0)
        fetchRecord(moduleIndex_);
}

void CDownloadRun::probeAll()
{
    moduleIndex_ = 0;
    totalBytes_ = 0;
    probeNext();
}

// Probes the size of the record at moduleIndex_ and moves on by one.
void CDownloadRun::probeNext()
{
    if (moduleIndex_ == 0)
        probedSizes_.clear();
    dlModule record = emptyDlModule();
    flow_.chosen().getModuleInfo(moduleIndex_, record);
    ++moduleIndex_;
    flow_.http().getFileSize(dlLocalText(record.serverPath));
}

// Fetches the record at index and points moduleIndex_ past it.
void CDownloadRun::fetchRecord(int index)
{
    dlModule record = emptyDlModule();
    flow_.chosen().getModuleInfo(index, record);
    flow_.view().setStatus(flow_.text("MD0044") + QLatin1Char(' ') + dlLocalText(record.name));
    moduleIndex_ = index + 1;
    const ListedHash listed = flow_.check().hashes().value(record);
    if (!listed.isEmpty())
        flow_.http().checkNextFile(listed.maxBytes());
    flow_.DownloadFile(dlLocalText(record.serverPath), 1, CDownloadHttp::KindDownloadModule, true);
}

void CDownloadRun::getSizeFile(long size)
{
    CFileToDl& chosen = flow_.chosen();
    probedSizes_.push_back(size);
    totalBytes_ += int(size);
    if (moduleIndex_ < chosen.getModuleCount()) {
        probeNext();
        return;
    }
    bytesOnDisk_ = 0;
    flow_.view().showProgress(totalBytes_);
    moduleIndex_ = 0;

    int count = chosen.getModuleCount();
    if (!flow_.mode().autoRun) {
        recordRun(count);
    } else {
        for (int i = 0; i < count; ++i) {
            dlModule record = emptyDlModule();
            chosen.getModuleInfo(i, record);
            flow_.store().changeStateLastDownloadModule(record, dlStateToFetch);
        }
    }

    if (chosen.getModuleCount() <= 0) {
        flow_.changeModules();
        return;
    }
    fetchRecord(0);
}

// Whether the host knows the module at all (any version installed).
bool CDownloadRun::askHostForModule(const dlModule& record)
{
    const VersionParts version = splitVersion(dlLocalText(record.version));
    coreModuleQuery query;
    std::memset(&query, 0, sizeof query);
    copyToField(query.name, dlText(record.name));
    query.major = version.major;
    query.minor = version.minor;
    query.build = version.build;
    return flow_.link().send(HostMsg::QueryModuleVersion, reinterpret_cast<intptr_t>(&query)) != -1;
}

// Writes the run into the state file. A file that the host knows and that
// already lies complete in the download folder is not fetched again: it
// leaves the set as fetched and its size leaves the total.
void CDownloadRun::recordRun(int& count)
{
    CFileToDl& chosen = flow_.chosen();
    CSaveParamDownload& store = flow_.store();
    store.createLastDownload(count);
    // probed: the record's place in the probing order, which dropping
    // records from the set does not change.
    for (int i = 0, probed = 0; i < count; ++i, ++probed) {
        dlModule record = emptyDlModule();
        chosen.getModuleInfo(i, record);
        const QString localFile = dlLocalText(record.localPath);
        const bool known = askHostForModule(record);
        const long probedSize = probed < int(probedSizes_.size()) ? probedSizes_[size_t(probed)] : 0;
        const ListedHash listed = flow_.check().hashes().value(record);
        if (!known || !isCompleteOnDisk(localFile, probedSize)) {
            store.saveLastDownloadModule(record, dlStateToFetch, listed);
            continue;
        }
        chosen.delToStuct(record);
        record.state = dlStateFetched;
        store.saveLastDownloadModule(record, dlStateFetched, listed);
        totalBytes_ -= fileSizeOnDisk(localFile);
        --count;
        --i;
    }
}

void CDownloadRun::addBytesOnDisk(long bytes)
{
    bytesOnDisk_ += int(bytes);
}

void CDownloadRun::setProgress(int done)
{
    const CUpdateWorkflow::Mode& mode = flow_.mode();
    IUpdateView& view = flow_.view();
    if (!view.hasWindow())
        return;
    if (mode.autoRun || mode.autoWait || !mode.idle) {
        view.setProgressMaximum(totalBytes_);
        dlModule record = emptyDlModule();
        flow_.chosen().getModuleInfo(moduleIndex_ - 1, record);
        const char* prefix = mode.autoRun ? "MD0045" : (mode.autoWait ? "MD0046" : "MD0044");
        view.setStatus(flow_.text(prefix) + QLatin1Char(' ') + dlLocalText(record.name));
    }
    view.setProgressValue(done + bytesOnDisk_);
}

void CDownloadRun::downloadModule(const QString& file, bool notFound)
{
    CFileToDl& chosen = flow_.chosen();
    dlModule arrived = emptyDlModule();
    chosen.getModuleInfo(moduleIndex_ - 1, arrived);
    const FetchDigest fetched = flow_.http().lastFetch();
    if (notFound && !fetched.overran) {
        errorRead();
        return;
    }
    // Records the automatic mode chose carry no local path yet; installation
    // needs to know where each file landed.
    setDlText(arrived.localPath, file.toLocal8Bit());
    chosen.changeStruct(moduleIndex_ - 1, arrived);
    const FileVerdict verdict = flow_.check().checkFile(arrived, fetched);
    if (verdict.accepted) {
        flow_.store().changeStateLastDownloadModule(arrived, dlStateFetched);
    } else {
        // Not the released file: never unpacked, never handed over.
        QFile::remove(file);
        flow_.store().changeStateLastDownloadModule(arrived, dlStateFailed);
        flow_.view().setStatus(dlLocalText(arrived.name) + QStringLiteral(": ") + verdict.reason);
    }
    fetchNextOrInstall();
}

void CDownloadRun::fetchNextOrInstall()
{
    CFileToDl& chosen = flow_.chosen();
    CUpdateWorkflow::Mode& mode = flow_.mode();
    IUpdateView& view = flow_.view();
    if (moduleIndex_ < chosen.getModuleCount()) {
        fetchRecord(moduleIndex_);
        return;
    }
    chosen.clearStruct();
    moduleIndex_ = 0;
    mode.autoWait = false;
    flow_.showIdleControls();
    view.resetProgress();
    view.setStatus(QString());
    if (view.hasWindow())
        view.setStartText(flow_.text("MD0011"));
    view.setBusy(false);
    mode.idle = true;
    mode.errorCount = 0;
    flow_.store().getCountStateLastDownloadModule(dlStateFetched);
    flow_.changeModules();
}

void CDownloadRun::errorRead()
{
    CUpdateWorkflow::Mode& mode = flow_.mode();
    IUpdateView& view = flow_.view();
    if (mode.errorCount < 3) {
        if (mode.autoRun) {
            flow_.continueDownload();
        } else if (!mode.autoWait) {
            // A manual run starts again from its ticked rows.
            mode.idle = true;
            moduleIndex_ = 0;
            flow_.chosen().clearStruct();
            clickStartDownload();
        } else {
            flow_.automatic().startAutoDownload();
            ++mode.errorCount;
            if (view.hasWindow()) {
                view.setProgressValue(0);
                view.setStatus(QString());
                view.setEnabled(IUpdateView::Start, false);
                view.setEnabled(IUpdateView::Stop, true);
                view.setEnabled(IUpdateView::Refresh, false);
                view.setBusy(true);
                view.setStatus(flow_.text("MD0047"));
            }
            return;
        }
        ++mode.errorCount;
        return;
    }

    mode.errorCount = 0;
    flow_.prompts().information(flow_.text("MD0048"), flow_.text("MD0049Message"));
    if (mode.autoRun)
        flow_.automatic().startAutoDownload();
    mode.idle = true;
    mode.autoRun = false;
    moduleIndex_ = 0;
    flow_.chosen().clearStruct();
    view.resetProgress();
    view.setStatus(flow_.text("MD0038Message"));
    flow_.clearDownloadDir();
    flow_.lists().getConfigDesc();
    flow_.lists().initFrame();
}

// ---------------------------------------------------------------------------
// The buttons

void CDownloadRun::clickStartDownload()
{
    CUpdateWorkflow::Mode& mode = flow_.mode();
    IUpdateView& view = flow_.view();
    if (mode.idle) {
        if (view.hasWindow()) {
            view.setStartText(flow_.text("C0082"));
            view.setEnabled(IUpdateView::Tree, false);
            view.setEnabled(IUpdateView::Stop, true);
        }
        mode.idle = false;
        view.setBusy(true);
        view.setStatus(flow_.text("MD0043"));
        moduleIndex_ = 0;
        bytesOnDisk_ = 0;
        totalBytes_ = 0;
        view.setProgressMaximum(0);
        view.setProgressValue(bytesOnDisk_);
        flow_.chosen().clearStruct();
        flow_.check().forgetRun();
        startDownload();
        return;
    }

    if (flow_.http().abort() != 0)
        return;
    flow_.chosen().clearStruct();
    mode.idle = true;
    if (view.hasWindow()) {
        view.setStartText(flow_.text("MD0011"));
        view.setEnabled(IUpdateView::Tree, true);
        view.setEnabled(IUpdateView::Stop, false);
        view.setEnabled(IUpdateView::Refresh, false);
    }
    --moduleIndex_;
    view.setStatus(flow_.text("C0082"), 500);
    view.setBusy(false);
}

void CDownloadRun::deleteRunFiles()
{
    CSaveParamDownload& store = flow_.store();
    if (store.getCountLastDownloadModule() <= 0)
        return;
    std::vector<dlModule> records;
    for (int state : {dlStateToFetch, dlStateFetched, dlStateInstalled, dlStateFailed}) {
        const std::vector<dlModule> some = store.getLastDownloadModules(state);
        records.insert(records.end(), some.begin(), some.end());
    }
    for (const dlModule& record : records) {
        const QString local = getLocalPath(flow_.downloadFolder(), dlLocalText(record.serverPath));
        if (QFile::exists(local))
            QFile::remove(local);
    }
}

void CDownloadRun::clickStopDownload()
{
    CUpdateWorkflow::Mode& mode = flow_.mode();
    IUpdateView& view = flow_.view();
    if (flow_.http().abort() != 0)
        return;
    flow_.chosen().clearStruct();
    deleteRunFiles();
    flow_.store().clearLastDownload();
    if (view.hasWindow())
        view.setStartText(flow_.text("MD0011"));
    view.uncheckAll();
    view.changeState();
    mode.idle = true;
    --moduleIndex_;
    view.setProgressValue(0);
    view.setStatus(QStringLiteral("Aborted"), 1000);
    view.setBusy(false);

    if (mode.autoRun || !mode.autoWait)
        return;
    mode.autoWait = false;
    if (!refreshPending_) {
        flow_.lists().initFrame();
        return;
    }
    refreshPending_ = false;
    flow_.clearDownloadDir();
    view.setBusy(true);
    view.setStatus(flow_.text("MD0038Message"));
    flow_.lists().getConfigDesc();
}

void CDownloadRun::clickRefreshDownload()
{
    IUpdateView& view = flow_.view();
    flow_.clearDownloadDir();
    if (view.hasWindow()) {
        view.clearRows();
        view.clearDescription();
        view.setEnabled(IUpdateView::Start, false);
        view.setEnabled(IUpdateView::Stop, false);
        view.setEnabled(IUpdateView::Refresh, false);
        view.setEnabled(IUpdateView::Tree, false);
        view.setEnabled(IUpdateView::Description, false);
        view.setInfo(flow_.text("MD0038Message"));
    }
    view.setBusy(true);
    view.setStatus(flow_.text("MD0038Message"));
    refreshPending_ = true;
    flow_.lists().getConfigDesc();
}

// ---------------------------------------------------------------------------
// Continuation: the chosen set brought up to date with a fresh module list

bool CDownloadRun::fetchStoredRecords()
{
    CSaveParamDownload& store = flow_.store();
    const std::vector<dlModule> stored = store.getLastDownloadModules(dlStateToFetch);
    if (stored.empty())
        return false;
    store.getLastDownloadHashes(flow_.check().hashes());
    flow_.chosen().clearStruct();
    for (const dlModule& record : stored)
        flow_.chosen().addToStuct(record);
    flow_.DownloadFile(CListChain::moduleListName(), 1, CDownloadHttp::KindGetNewModule, false);
    return true;
}

void CDownloadRun::getNewModule(const QString& file)
{
    if (!::getNewModule(file, flow_.chosen(), flow_.store(), flow_.lists().listSources(),
                        CInstalledProducts(flow_.link()), &flow_.check().hashes()))
        return;
    probeAll();
}
