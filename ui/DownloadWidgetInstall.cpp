// CDownloadWidget's installation and boxes: the progress window around the
// workflow's hand-over, the report, and the module's message boxes.
#include <QCoreApplication>
#include <QEventLoop>
#include <QMessageBox>
#include <QProgressDialog>
#include <QPushButton>

#include "module/DownloadModule.h"
#include "platform/LogHelper.h"
#include "ui/ChangeModulesThread.h"
#include "ui/DownloadMessInfo.h"
#include "ui/DownloadWidget.h"
#include "ui/TextEdit.h"
#include "update/Installation.h"
#include "update/UpdateWorkflow.h"

QWidget* CDownloadWidget::messageParent() const
{
    if (dialog)
        return dialog;
    CDownloadModule* module = GetModule<CDownloadModule>();
    return module ? module->GetMainWindow() : nullptr;
}

void CDownloadWidget::information(const QString& title, const QString& message)
{
    QMessageBox::information(dialog, title, message, QMessageBox::Ok);
}

void CDownloadWidget::critical(const QString& title, const QString& message)
{
    QMessageBox::critical(messageParent(), title, message, QMessageBox::Ok);
}

int CDownloadWidget::question(const QString& title, const QString& message)
{
    CDownloadMessInfo box(this, title, message);
    return box.start();
}

int CDownloadWidget::runInstallation(bool& cancelled)
{
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

    cancelled = answer == QDialog::Rejected && progress.wasCanceled();
    if (cancelled) {
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
        return -1;
    }
    worker.wait();
    return worker.result();
}

int CDownloadWidget::changeModulesInnerWork(ChangeModulesThread* worker)
{
    return workflow_->installationWork(
        [worker](int minimum, int maximum) {
            if (worker) {
                emit worker->MinimumChanged(minimum);
                emit worker->MaximumChanged(maximum);
                emit worker->ValueChanged(0);
            }
        },
        [worker](int value) {
            if (worker)
                emit worker->ValueChanged(value);
        },
        [worker] { return worker && worker->stopRequested(); });
}

void CDownloadWidget::setInfoAboutSuccessModuleUpdate(bool success, dlModule& record,
                                                      int configIndex, QString)
{
    workflow_->installation().setInfoAboutSuccessModuleUpdate(success, record, configIndex);
}

bool CDownloadWidget::moveFiles(QString source, QString destination, QString backup, dlModule)
{
    return CInstallation::moveFiles(source, destination, backup);
}

void CDownloadWidget::showUpdateReport(int count)
{
    workflow_->installation().report(count);
}

void CDownloadWidget::showReport(const std::vector<dlModule>& installed, const QStringList& refused)
{
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

    report->setTextColor(Qt::red);
    report->setFontWeight(75);
    report->append(text("MD0025Message"));
    report->setTextColor(Qt::black);
    report->setFontWeight(50);
    report->append(text("MD0024"));
    report->append(QString());
    for (const dlModule& record : installed)
        report->append(QStringLiteral(" - ") + QString::fromLocal8Bit(dlText(record.name))
                       + QStringLiteral("          ver: ")
                       + QString::fromLocal8Bit(dlText(record.version)));
    if (!refused.isEmpty()) {
        report->append(QString());
        report->setTextColor(Qt::red);
        for (const QString& line : refused)
            report->append(line);
    }
    reportDialog->exec();

    QDialog* finished = reportDialog;
    reportDialog = nullptr;
    delete finished;
}
