// CDownloadWidget's installation: the hand-over of the fetched files to the
// updater program, the outcome of each file, and the report.
#include <atomic>
#include <cstring>
#include <thread>

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QMessageBox>
#include <QProgressDialog>
#include <QPushButton>
#include <QThread>

#include "module/DownloadModule.h"
#include "module/HostFolders.h"
#include "protocol/HostMessages.h"
#include "platform/LogHelper.h"
#include "storage/RecordText.h"
#include "transfer/DownloadHttp.h"
#include "ui/ChangeModulesThread.h"
#include "ui/DownloadWidget.h"
#include "ui/TextEdit.h"
#include "update/FileToDl.h"
#include "update/InstalledProducts.h"
#include "update/SaveParamDownload.h"
#include "update/Unpack.h"
#include "update/UpdaterProtocol.h"
#include "update/UpdaterSession.h"
#include "update/VersionRules.h"

namespace {

CDownloadModule* owner()
{
    return GetModule<CDownloadModule>();
}

CHostLink moduleLink()
{
    CDownloadModule* module = owner();
    return module ? module->hostLink() : CHostLink();
}

int sendToHost(unsigned int code, void* record)
{
    CDownloadModule* module = owner();
    if (!module || !module->sendCallback())
        return -1;
    return module->sendCallback()(module->hostPointer(), code, reinterpret_cast<intptr_t>(record), 0);
}

QString localPathOf(const dlModule& record)
{
    return QString::fromLocal8Bit(dlText(record.localPath));
}

}  // namespace

template <class F>
void CDownloadWidget::onGuiThread(F f)
{
    if (QThread::currentThread() == thread())
        f();
    else
        QMetaObject::invokeMethod(this, f, Qt::BlockingQueuedConnection);
}

QWidget* CDownloadWidget::messageParent() const
{
    if (dialog)
        return dialog;
    CDownloadModule* module = owner();
    return module ? module->GetMainWindow() : nullptr;
}

std::vector<dlModule> CDownloadWidget::storedRecords(int state, int count)
{
    std::vector<dlModule> records(size_t(qMax(count, 0)), emptyDlModule());
    if (count > 0)
        saveParam->getLastDownloadModule(state, count, records.data());
    return records;
}

void CDownloadWidget::changeModules()
{
    const int fetched = saveParam->getCountStateLastDownloadModule(dlStateFetched);
    LogHelper::ShowLogInfo(logTypeMessage, logLevel2,
                           QStringLiteral("Download complete: %1 file(s) ready to install")
                               .arg(fetched));
    emit SignalInstallationStarts(fetched);
    if (!QFile::exists(GetPathToUpdaterProgram()) || fetched < 1) {
        LogHelper::ShowLogInfo(logTypeError, logLevel4,
                               QStringLiteral("Cannot install: updater \"%1\" %2, %3 file(s) fetched")
                                   .arg(GetPathToUpdaterProgram(),
                                        QFile::exists(GetPathToUpdaterProgram())
                                            ? QStringLiteral("found")
                                            : QStringLiteral("missing"))
                                   .arg(fetched));
        QMessageBox::critical(messageParent(), text("MD0050"), text("MD0053"), QMessageBox::Ok);
        emit SignalInstallationEnded(-1);
        return;
    }

    QProgressDialog progress(text("MD0052"), text("C0007Cancel"), 0, 0, dialog);
    progress.setAutoReset(false);
    progress.setAutoClose(false);
    progress.setWindowTitle(text("MD0003"));
    progress.setMinimumDuration(0);

    ChangeModulesThread worker(this);
    connect(&worker, &QThread::finished, &progress, &QDialog::accept);
    connect(&worker, &ChangeModulesThread::ValueChanged, &progress, &QProgressDialog::setValue);
    connect(&worker, &ChangeModulesThread::MinimumChanged, &progress,
            &QProgressDialog::setMinimum);
    connect(&worker, &ChangeModulesThread::MaximumChanged, &progress,
            &QProgressDialog::setMaximum);
    worker.start(QThread::InheritPriority);
    const int answer = progress.exec();

    int result = -1;
    if (answer == QDialog::Rejected && progress.wasCanceled()) {
        // The hand-over stops between files and tells the updater that
        // nothing more follows; a file being served is finished first. The
        // worker is never killed: a thread cut off in the middle takes the
        // host process down with it. It may be waiting for this thread (host
        // calls run here), so events are served while it ends; the session's
        // own limits keep an updater that stops answering from holding it.
        worker.requestStop();
        while (!worker.isFinished()) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
            worker.wait(5);
        }
        LogHelper::ShowLogInfo(logTypeMessage, logLevel2, QStringLiteral("Installation cancelled"));
        changeCursor(false);
        emit SignalInstallationEnded(result);
        return;
    }
    worker.wait();
    result = worker.result();
    if (result > 0)
        showUpdateReport(result);
    LogHelper::ShowLogInfo(logTypeMessage, logLevel2,
                           QStringLiteral("Installation ended: %1").arg(result));

    if (dialog) {
        clearDownloadDir();
        getConfigDesc();
    } else {
        initFrame();
    }
    changeCursor(false);
    emit SignalInstallationEnded(result);
}

int CDownloadWidget::changeModulesInnerWork(ChangeModulesThread* worker)
{
    int configIndex = -1;
    int total = 0;
    int count = 0;
    std::vector<dlModule> records;
    onGuiThread([&] {
        configIndex =
            getCurrentConfigurationIndex(installedConfigs.data(), int(installedConfigs.size()));
        total = saveParam->getCountLastDownloadModule();
        count = saveParam->getCountStateLastDownloadModule(dlStateFetched);
        installCount = count;
        records = storedRecords(dlStateFetched, count);
    });
    if (count < 1)
        return count;
    QDir().mkpath(getBackupDirPath());

    std::vector<bool> reportedAtPrepare(records.size(), false);
    int lastServedError = 0;  // the updater's answer to the last request it served
    CUpdaterSession::Hooks hooks;
    hooks.range = [worker](int minimum, int maximum) {
        if (worker) {
            emit worker->MinimumChanged(minimum);
            emit worker->MaximumChanged(maximum);
            emit worker->ValueChanged(0);
        }
    };
    hooks.value = [worker](int value) {
        if (worker)
            emit worker->ValueChanged(value);
    };
    hooks.prepare = [&](int index, UpdaterRequest& request) {
        dlModule& record = records[size_t(index)];
        const bool unpacked = unzipDownloadedModule(record, [this](const dlModule& done, int state) {
            onGuiThread([&] { saveParam->changeStateLastDownloadModule(done, state); });
        });
        if (!unpacked && discardPackedLeftover(record)) {
            // A download that does not unpack whole is not a module: it is
            // recorded as still to fetch, and the next run fetches it again.
            onGuiThread([&] { saveParam->changeStateLastDownloadModule(record, dlStateToFetch); });
            return CUpdaterSession::Skip;
        }
        int type = 0;
        if (!parseInstallType(dlText(record.type), &type))
            return CUpdaterSession::Fail;
        const QString local = localPathOf(record);
        if (type == 2) {
            if (!QFile::exists(local)) {
                // A configuration file that is not there is passed over, and
                // the next round reports it as done unless the updater's last
                // answer was an error: so it leaves state 2, the report's
                // count adds up and the stored run ends.
                if (lastServedError == 0)
                    onGuiThread([&] { setInfoAboutSuccessModuleUpdate(true, record, configIndex, QString()); });
                return CUpdaterSession::Skip;
            }
            onGuiThread([&] {
                coreConfigFileArrived arrived;
                std::memset(&arrived, 0, sizeof arrived);
                copyToField(arrived.path, dlText(record.localPath));
                sendToHost(HostMsg::ConfigFileArrived, &arrived);
                QFile::remove(local);
                setInfoAboutSuccessModuleUpdate(true, record, configIndex, QString());
                request.copyConfiguration = true;
                // The host is asked for the copy folder first, then for the
                // configuration's file.
                request.destination =
                    GetPathByFolderType(owner(), VM_FOLDERS(vfConfigCopy)) + QStringLiteral("/Config");
                // "NameConfig" names the configuration the file belongs to
                // (a configuration list's record carries its own name there,
                // the automatic run's the configuration's); a record chosen
                // by hand from a module list has none, and its name is the
                // configuration's.
                const QByteArray configuration =
                    dlText(record.auxPath).isEmpty() ? dlText(record.name) : dlText(record.auxPath);
                request.source = CInstalledProducts(moduleLink()).GetPathToConfigFile(
                    QString::fromLocal8Bit(configuration));
            });
            reportedAtPrepare[size_t(index)] = true;
            return CUpdaterSession::Send;
        }
        QString folder;
        onGuiThread([&] { folder = GetPathByFolderType(owner(), VM_FOLDERS(installFolderType(type))); });
        if (folder.isEmpty())
            return CUpdaterSession::Fail;
        request.source = local;
        request.destination = folder;
        return CUpdaterSession::Send;
    };
    hooks.served = [&](int index, int error) {
        lastServedError = error;
        if (error != 0 || reportedAtPrepare[size_t(index)])
            return;
        onGuiThread([&] {
            setInfoAboutSuccessModuleUpdate(true, records[size_t(index)], configIndex, QString());
        });
    };

    QVector<UpdaterRequest> requests(int(records.size()));
    CUpdaterSession session(GetPathToUpdaterProgram(), getBackupDirPath(), requests, hooks);
    std::atomic<bool> done{false};
    // The session polls its own stop flag; a watcher passes the thread's on.
    std::thread stopWatcher([&] {
        while (!done) {
            if (worker && worker->stopRequested()) {
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

    onGuiThread([&] {
        const int failedCount = saveParam->getCountStateLastDownloadModule(dlStateFailed);
        std::vector<dlModule> failed = storedRecords(dlStateFailed, failedCount);
        for (dlModule& record : failed)
            setInfoAboutSuccessModuleUpdate(false, record, configIndex, QString());
    });
    return total;
}

void CDownloadWidget::setInfoAboutSuccessModuleUpdate(bool success, dlModule& record,
                                                      int configIndex, QString)
{
    saveParam->changeStateLastDownloadModule(record, dlStateInstalled);
    const QByteArray type = dlText(record.type);
    if (configIndex < 0 || configIndex >= int(installedConfigs.size()) || !success
        || (type != "0" && type != "1"))
        return;
    if (dlText(record.name) != fieldBytes(installedConfigs[size_t(configIndex)].name))
        return;
    const VersionParts version = splitVersion(QString::fromLocal8Bit(dlText(record.version)));
    coreModuleUpdated updated;
    std::memset(&updated, 0, sizeof updated);
    copyToField(updated.fileName, QFileInfo(localPathOf(record)).fileName().toLocal8Bit());
    updated.major = version.major;
    updated.minor = version.minor;
    updated.build = version.build;
    sendToHost(HostMsg::ModuleUpdated, &updated);
}

bool CDownloadWidget::moveFiles(QString source, QString destination, QString backup, dlModule)
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

void CDownloadWidget::showUpdateReport(int count)
{
    if (saveParam->getCountStateLastDownloadModule(dlStateInstalled) != count)
        return;
    reportDialog = new QDialog(messageParent());
    reportDialog->setFixedSize(400, 300);
    reportDialog->setWindowTitle(text("MD0024"));
    auto* report = new CTextEdit(reportDialog);
    report->setGeometry(5, 5, 390, 260);
    report->setLineWrapMode(QTextEdit::NoWrap);
    report->setReadOnly(true);
    auto* ok = new QPushButton(text("C0049Ok"), reportDialog);
    ok->setGeometry(292, 273, 102, 20);
    ok->setDefault(true);
    ok->setAutoDefault(true);
    ok->setFocus();
    connect(ok, &QPushButton::clicked, this, &CDownloadWidget::closeDialog);

    lastModules = storedRecords(dlStateInstalled, count);
    report->setTextColor(Qt::red);
    report->setFontWeight(75);
    report->append(text("MD0025Message"));
    report->setTextColor(Qt::black);
    report->setFontWeight(50);
    report->append(text("MD0024"));
    report->append(QString());
    for (const dlModule& record : lastModules)
        report->append(QStringLiteral(" - ") + QString::fromLocal8Bit(dlText(record.name))
                       + QStringLiteral("          ver: ")
                       + QString::fromLocal8Bit(dlText(record.version)));
    reportDialog->exec();

    QDialog* finished = reportDialog;
    reportDialog = nullptr;
    delete finished;
    saveParam->clearLastDownload();
    installedConfigs = CInstalledProducts(moduleLink()).configurations();
}
