#include "ui/DownloadWidget.h"

#include <cstring>

#include <QApplication>
#include <QCheckBox>
#include <QDialog>
#include <QFile>
#include <QGroupBox>
#include <QIcon>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QProgressDialog>
#include <QPushButton>
#include <QStatusBar>
#include <QTabWidget>
#include <QThread>
#include <QTimer>
#include <QTreeWidget>
#include <QVBoxLayout>

#include "module/DownloadModule.h"
#include "module/HostFolders.h"
#include "protocol/HostMessages.h"
#include "platform/LogHelper.h"
#include "storage/RecordText.h"
#include "transfer/DownloadHttp.h"
#include "transfer/DownloadManager.h"
#include "ui/ChangeModulesThread.h"
#include "ui/DlCheckListItem.h"
#include "ui/DlListViewItem.h"
#include "ui/DownloadMessInfo.h"
#include "ui/TextEdit.h"
#include "update/AutoChoice.h"
#include "update/DownloadRun.h"
#include "update/FileToDl.h"
#include "update/Installation.h"
#include "update/ListChain.h"
#include "update/SaveParamDownload.h"
#include "update/UpdateWorkflow.h"

namespace {

CDownloadModule* module()
{
    return GetModule<CDownloadModule>();
}

}  // namespace

// ---------------------------------------------------------------------------
// Construction: the host is asked in the order it expects, the window's own
// questions between the workflow's.

CDownloadWidget::CDownloadWidget()
{
    downloadManager = new Download::CDownloadManager(this);
    connect(downloadManager, &Download::CDownloadManager::SignalDownloadFinished, this,
            &CDownloadWidget::SlotDownloadFinished);

    CDownloadModule* owner = module();
    CUpdateWorkflow::Environment environment;
    environment.link = owner ? owner->hostLink() : CHostLink();
    environment.text = [this](const char* key) { return text(key); };
    environment.proxyData = [](mwiProxyState& state) {
        if (CDownloadModule* current = module())
            current->GetProxyData(state);
    };
    environment.startOffline = owner && owner->isOffline();
    environment.view = this;
    environment.prompts = this;
    workflow_ = std::make_unique<CUpdateWorkflow>(environment);
    connect(workflow_.get(), &CUpdateWorkflow::SignalListsShown, this,
            &CDownloadWidget::SignalListsShown);
    connect(workflow_.get(), &CUpdateWorkflow::SignalInstallationStarts, this,
            &CDownloadWidget::SignalInstallationStarts);
    connect(workflow_.get(), &CUpdateWorkflow::SignalInstallationEnded, this,
            &CDownloadWidget::SignalInstallationEnded);

    workflow_->askConnectState();
    askHostForWindow();
    workflow_->setUpFolders();
    workflow_->store().getStartParam(autoDownloadOption, showWindowOption);
}

CDownloadWidget::~CDownloadWidget()
{
    if (QDialog* window = dialog) {
        window->disconnect(this);
        windowClosed();
        delete window;
    }
    delete reportDialog;
}

// The host's main window and the dialog's menu entry; the installed
// configurations are asked while the main window is held.
void CDownloadWidget::askHostForWindow()
{
    CDownloadModule* owner = module();
    const CHostLink link = workflow_->link();
    coreInterfaceRecord query = mainWindowQuery(&pGloabalMainWindow);
    link.send(HostMsg::FindInterface, reinterpret_cast<intptr_t>(&query));
    mainWindow = pGloabalMainWindow;

    coreMenuItem entry;
    std::memset(&entry, 0, sizeof entry);
    copyToField(entry.text, text("MD0003").toLocal8Bit());
    entry.module = owner;
    if (link.send(HostMsg::AddMenuItem, reinterpret_cast<intptr_t>(&entry)) == 0)
        menuId = entry.id;
    link.send(HostMsg::UpdateMenu, 0);

    workflow_->askInstalledConfigurations();

    link.send(HostMsg::ReleaseInterface, reinterpret_cast<intptr_t>(&mainWindowQuery));
}

QString CDownloadWidget::getBackupDirPath() const
{
    return workflow_->backupFolder();
}

void CDownloadWidget::clearDownloadDir()
{
    workflow_->clearDownloadDir();
}

void CDownloadWidget::closeModule()
{
    if (dialog) {
        autoDownloadOption = autoBox->isChecked();
        showWindowOption = showWindowBox->isChecked();
    }
    clearDownloadDir();
}

QString CDownloadWidget::text(const char* key) const
{
    CDownloadModule* owner = module();
    return owner ? owner->tr(key) : QString::fromLatin1(key);
}

CDownloadHttp* CDownloadWidget::http() const { return &workflow_->http(); }
const CFileToDl& CDownloadWidget::chosen() const { return workflow_->chosen(); }
QString CDownloadWidget::serverBaseUrl() const { return workflow_->serverBaseUrl(); }
QString CDownloadWidget::brokerBaseUrl() const { return workflow_->brokerBaseUrl(); }
QString CDownloadWidget::downloadFolder() const { return workflow_->downloadFolder(); }
bool CDownloadWidget::settingsFileExisted() const { return workflow_->settingsFileExisted(); }
int CDownloadWidget::connectionState() const { return workflow_->connectionState(); }
int CDownloadWidget::autoDelaySeconds() const { return workflow_->autoDelaySeconds(); }
QTimer* CDownloadWidget::autoStartTimer() const { return workflow_->autoStartTimer(); }

// ---------------------------------------------------------------------------
// The window

void CDownloadWidget::initWindow()
{
    if (dialog) {
        dialog->raise();
        dialog->activateWindow();
        return;
    }
    buildControls();
    dialog->setWindowModality(Qt::ApplicationModal);
    workflow_->showFirstLook();
    dialog->show();
    workflow_->windowOpened();
}

void CDownloadWidget::buildControls()
{
    dialog = new QDialog(nullptr);
    dialog->setFixedSize(550, 420);
    dialog->setWindowTitle(text("MD0003"));
    dialog->setWindowIcon(QIcon(QStringLiteral(":/download.png")));
    connect(dialog, &QDialog::finished, this, &CDownloadWidget::windowClosed);

    buttonFrame = new QGroupBox(dialog);
    buttonFrame->setGeometry(0, 350, 550, 70);
    buttonFrame->setFixedSize(550, 70);

    auto makeButton = [this](int x, const char* key) {
        auto* button = new QPushButton(dialog);
        button->setGeometry(x, 360, 100, 25);
        button->setText(text(key));
        return button;
    };
    refreshButton = makeButton(50, "C0083");
    connect(refreshButton, &QPushButton::clicked, this, &CDownloadWidget::clickRefreshDownload);
    startButton = makeButton(150, "MD0011");
    connect(startButton, &QPushButton::clicked, this, &CDownloadWidget::clickStartDownload);
    stopButton = makeButton(250, "C0007Cancel");
    connect(stopButton, &QPushButton::clicked, this, &CDownloadWidget::clickStopDownload);
    closeButton = makeButton(400, "C0050Close");
    connect(closeButton, &QPushButton::clicked, this, &CDownloadWidget::closeConvertor);
    refreshButton->setEnabled(false);
    startButton->setEnabled(false);
    stopButton->setEnabled(false);

    statusBar = new QStatusBar(dialog);
    statusBar->setGeometry(0, 400, 550, 20);
    statusBar->setSizeGripEnabled(false);
    progressBar = new QProgressBar(statusBar);
    progressBar->setGeometry(350, 2, 150, 16);
    progressBar->setAlignment(Qt::AlignCenter);
    progressBar->hide();

    pages = new QTabWidget(dialog);
    pages->setGeometry(0, 0, 550, 350);
    pages->setFixedSize(550, 350);
    // Page changes play no part in the workflow: nothing is connected to them.

    taskPage = new QWidget(pages);
    pages->addTab(taskPage, text("MD0006"));
    infoLabel = new QLabel(taskPage);
    infoLabel->setGeometry(10, 10, 530, 40);
    infoLabel->setAlignment(Qt::AlignHCenter | Qt::AlignVCenter);
    infoLabel->setWordWrap(true);

    moduleTree = new QTreeWidget(taskPage);
    moduleTree->setGeometry(10, 50, 530, 190);
    moduleTree->setColumnCount(5);
    moduleTree->setHeaderLabels({text("C0028Name"), text("C0084"), text("C0052Date"),
                                 text("MD0029"), text("C0086")});
    moduleTree->setColumnWidth(0, 190);
    moduleTree->setColumnWidth(1, 70);
    moduleTree->setColumnWidth(2, 110);
    moduleTree->setColumnWidth(3, 70);
    connect(moduleTree, &QTreeWidget::itemSelectionChanged, this,
            &CDownloadWidget::selectionChanged);
    connect(moduleTree, &QTreeWidget::itemClicked, this, &CDownloadWidget::itemClickedSlot);
    connect(moduleTree, &QTreeWidget::itemChanged, this,
            [this](QTreeWidgetItem* item, int column) {
                if (column == 0 && item && !item->parent())
                    changeState();
            });

    descriptionBox = new CTextEdit(taskPage);
    descriptionBox->setGeometry(10, 240, 530, 75);

    paramPage = new QWidget(pages);
    pages->addTab(paramPage, text("C0029Param"));
    paramGroup = new QGroupBox(text("MD0008"), paramPage);
    paramGroup->setGeometry(10, 10, 525, 170);
    autoBox = new QCheckBox(text("MD0035Message"), paramGroup);
    autoBox->setGeometry(15, 25, 240, 22);
    autoLabel = new QLabel(text("MD0033Message"), paramGroup);
    autoLabel->setGeometry(35, 48, 470, 30);
    autoLabel->setFixedSize(470, 30);
    autoLabel->setWordWrap(true);
    showWindowBox = new QCheckBox(text("MD0036"), paramGroup);
    showWindowBox->setGeometry(15, 90, 240, 22);
    showWindowLabel = new QLabel(text("MD0034Message"), paramGroup);
    showWindowLabel->setGeometry(35, 113, 470, 30);
    showWindowLabel->setFixedSize(470, 30);
    showWindowLabel->setWordWrap(true);

    workflow_->store().getStartParam(autoDownloadOption, showWindowOption);
    showWindowBox->setChecked(showWindowOption);
    autoBox->setChecked(autoDownloadOption);
    changeAuto(autoDownloadOption);
    connect(autoBox, &QCheckBox::toggled, this, &CDownloadWidget::changeAuto);
}

// Forgets the controls first, so that signals of controls being deleted find
// no window, then lets the event loop delete them.
void CDownloadWidget::windowClosed()
{
    if (!dialog)
        return;
    QDialog* closing = dialog;
    dialog = nullptr;
    buttonFrame = nullptr;
    refreshButton = startButton = stopButton = closeButton = nullptr;
    statusBar = nullptr;
    progressBar = nullptr;
    pages = nullptr;
    taskPage = paramPage = nullptr;
    infoLabel = autoLabel = showWindowLabel = nullptr;
    moduleTree = nullptr;
    descriptionBox = nullptr;
    paramGroup = nullptr;
    autoBox = showWindowBox = nullptr;
    closing->deleteLater();
}

bool CDownloadWidget::hasWindow() const
{
    return dialog != nullptr;
}

void CDownloadWidget::closeConvertor()
{
    if (dialog) {
        autoDownloadOption = autoBox->isChecked();
        showWindowOption = showWindowBox->isChecked();
    }
    workflow_->store().saveStartParam(autoDownloadOption, showWindowOption);
    if (dialog)
        dialog->close();
}

void CDownloadWidget::closeDialog()
{
    if (reportDialog)
        reportDialog->close();
}

void CDownloadWidget::pressMenu(mm_menu_item* item)
{
    if (item && !isOffLine() && item->id == menuId)
        initWindow();
}

void CDownloadWidget::changeAuto(bool on)
{
    if (!showWindowBox)
        return;
    if (!on)
        showWindowBox->setChecked(false);
    showWindowBox->setEnabled(on);
    showWindowLabel->setEnabled(on);
}

// ---------------------------------------------------------------------------
// The workflow's members under the dialog's names

void CDownloadWidget::initFrame() { workflow_->lists().initFrame(); }
void CDownloadWidget::getConfigDesc() { workflow_->lists().getConfigDesc(); }
void CDownloadWidget::getModuleDesc() { workflow_->lists().getModuleDesc(); }
bool CDownloadWidget::isOffLine() { return workflow_->isOffLine(); }
void CDownloadWidget::getProxyData(mwiProxyState& state) { workflow_->getProxyData(state); }
void CDownloadWidget::setStateConnect(int state) { workflow_->setStateConnect(state); }
void CDownloadWidget::DownloadFile(QString const& name, QString const&, int param, int kind, int,
                                   bool progress)
{
    workflow_->DownloadFile(name, param, kind, progress);
}
void CDownloadWidget::startDownload() { workflow_->run().startDownload(); }
void CDownloadWidget::errorRead() { workflow_->run().errorRead(); }
void CDownloadWidget::continueDownload() { workflow_->continueDownload(); }
void CDownloadWidget::startTimer() { workflow_->startTimer(); }
void CDownloadWidget::startTimerIsOutTime() { workflow_->startTimerIsOutTime(); }
void CDownloadWidget::changeModules() { workflow_->changeModules(); }
void CDownloadWidget::startAutoDownload() { workflow_->automatic().startAutoDownload(); }
void CDownloadWidget::clickRefreshDownload() { workflow_->run().clickRefreshDownload(); }
void CDownloadWidget::clickStartDownload() { workflow_->run().clickStartDownload(); }
void CDownloadWidget::clickStopDownload() { workflow_->run().clickStopDownload(); }
void CDownloadWidget::showStatusMessage(const QString& message, int timeoutMs)
{
    setStatus(message, timeoutMs);
}
void CDownloadWidget::addBytesOnDisk(long bytes) { workflow_->addBytesOnDisk(bytes); }
void CDownloadWidget::setProgress(int done) { workflow_->setProgress(done); }
void CDownloadWidget::getSizeFile(long size) { workflow_->getSizeFile(size); }
void CDownloadWidget::parseFileTxt(QString file, int param) { workflow_->parseFileTxt(file, param); }
void CDownloadWidget::parseFileTxt1(QString file, int param) { workflow_->parseFileTxt1(file, param); }
void CDownloadWidget::parseFileTxt2(QString file, int param) { workflow_->parseFileTxt2(file, param); }
void CDownloadWidget::downloadModule(QString file, bool notFound)
{
    workflow_->downloadModule(file, notFound);
}
void CDownloadWidget::getNewModule(QString file) { workflow_->getNewModule(file); }
void CDownloadWidget::autoDownloadConfig(QString file) { workflow_->autoDownloadConfig(file); }
void CDownloadWidget::autoDownloadConfigDescr(QString file, int param)
{
    workflow_->autoDownloadConfigDescr(file, param);
}

void CDownloadWidget::SlotDownloadFinished(Download::CDownloadManager const&, QString const& url)
{
    LogHelper::ShowLogInfo(logTypeMessage, logLevel2, QStringLiteral("Fetched ") + url);
}
