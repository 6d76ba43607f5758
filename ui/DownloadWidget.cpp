#include "ui/DownloadWidget.h"

#include <cstring>

#include <QApplication>
#include <QCheckBox>
#include <QDialog>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QGroupBox>
#include <QIcon>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QProgressDialog>
#include <QPushButton>
#include <QStatusBar>
#include <QTabWidget>
#include <QTextCodec>
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
#include "update/ChosenModules.h"
#include "update/ConfigListParser.h"
#include "update/DownloadSettings.h"
#include "update/FileToDl.h"
#include "update/InstalledProducts.h"
#include "update/ModuleListParser.h"
#include "update/SaveParamDownload.h"
#include "update/UpdatePaths.h"
#include "update/VersionRules.h"

namespace {

const char kStateFileName[] = "download.rdd";

CDownloadModule* module()
{
    return GetModule<CDownloadModule>();
}

CHostLink moduleLink()
{
    CDownloadModule* owner = module();
    return owner ? owner->hostLink() : CHostLink();
}

int sendToHost(void* target, unsigned int code, intptr_t param1, intptr_t param2)
{
    CDownloadModule* owner = module();
    if (!owner || !owner->sendCallback())
        return -1;
    return owner->sendCallback()(target, code, param1, param2);
}

QString fieldText(const char (&field)[kDlTextSize])
{
    return QString::fromLocal8Bit(dlText(field));
}

// Columns: Name, Size, Date, Core, Version. The list's display text is the
// file's date as the server publishes it, and versionExtra is the core
// version it was built for.
void fillColumns(QTreeWidgetItem* item, const dlModule& record)
{
    item->setText(0, fieldText(record.name));
    item->setText(1, fieldText(record.sizeText));
    item->setText(2, fieldText(record.title));
    item->setText(3, fieldText(record.versionExtra));
    item->setText(4, fieldText(record.version));
}

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
// Construction: settings, folders and clients

CDownloadWidget::CDownloadWidget()
{
    downloadManager = new Download::CDownloadManager(this);
    connect(downloadManager, &Download::CDownloadManager::SignalDownloadFinished, this,
            &CDownloadWidget::SlotDownloadFinished);

    askHostAtStart();

    configDescName = QStringLiteral("/configDesc.txt");
    moduleDescName = QStringLiteral("/moduleDesc.txt");
    configBrokerDescName = QStringLiteral("/configBrokerDesc.txt");
    moduleBrokerDescName = QStringLiteral("/moduleBrokerDesc.txt");
    fileListName = moduleDescName;

    setUpFolders();

    httpClient = new CDownloadHttp(this, serverUrl);
    httpClient->setIdleTimeout(
        readIdleTimeoutSeconds(configFilePath, CDownloadHttp::kDefaultIdleTimeoutSeconds) * 1000);
    saveParam = new CSaveParamDownload(downloadDir);
    fileToDl = new CFileToDl;
    outTimer = new QTimer(this);
    connect(outTimer, &QTimer::timeout, this, &CDownloadWidget::startTimerIsOutTime);
    autoDelay = outTimeValue;
    saveParam->getStartParam(autoDownloadOption, showWindowOption);
}

CDownloadWidget::~CDownloadWidget()
{
    if (QDialog* window = dialog) {
        window->disconnect(this);
        windowClosed();
        delete window;
    }
    delete reportDialog;
    delete httpClient;
    delete saveParam;
    delete fileToDl;
}

// The host's answers that the dialog keeps: whether it is on-line, its main
// window, the dialog's menu entry and the installed configurations.
void CDownloadWidget::askHostAtStart()
{
    CDownloadModule* owner = module();
    void* host = owner ? owner->hostPointer() : nullptr;

    mwiSetStateConnect state{1};
    const bool answered =
        sendToHost(host, HostMsg::QueryConnectState, reinterpret_cast<intptr_t>(&state), 0) == 0;
    connectState = (owner && owner->isOffline()) ? 0 : (answered ? state.state : 1);

    coreInterfaceRecord query = mainWindowQuery(&pGloabalMainWindow);
    sendToHost(host, HostMsg::FindInterface, reinterpret_cast<intptr_t>(&query), 0);
    mainWindow = pGloabalMainWindow;

    coreMenuItem entry;
    std::memset(&entry, 0, sizeof entry);
    copyToField(entry.text, text("MD0003").toLocal8Bit());
    entry.module = owner;
    if (sendToHost(host, HostMsg::AddMenuItem, reinterpret_cast<intptr_t>(&entry), 0) == 0)
        menuId = entry.id;
    sendToHost(host, HostMsg::UpdateMenu, 0, 0);

    installedConfigs = CInstalledProducts(moduleLink()).configurations();

    sendToHost(host, HostMsg::ReleaseInterface, reinterpret_cast<intptr_t>(&mainWindowQuery), 0);
}

void CDownloadWidget::setUpFolders()
{
    downloadDir = GetPathByFolderType(module(), vfDownload);
    if (QDir(downloadDir).exists())
        clearDownloadDir();
    else
        QDir().mkdir(downloadDir);
    stateFilePath = downloadDir + QLatin1Char('/') + QLatin1String(kStateFileName);

    configFilePath = GetPathByFolderType(module(), vfConfiguration) + QStringLiteral("/download.cfg");
    configFileExists = QFile::exists(configFilePath);
    serverUrl = readServerUrl(configFilePath);
    brokerUrl = serverUrl + QStringLiteral("/Broker");
}

QString CDownloadWidget::getBackupDirPath() const
{
    return downloadDir + QStringLiteral("/Backup");
}

void CDownloadWidget::clearDownloadDir()
{
    clearTextFiles(downloadDir);
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
    showFirstLook();
    dialog->setWindowModality(Qt::ApplicationModal);
    dialog->show();
    if (idle && !autoRun && !autoWait && !searchRunning)
        startAutoDownload();
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

    saveParam->getStartParam(autoDownloadOption, showWindowOption);
    showWindowBox->setChecked(showWindowOption);
    autoBox->setChecked(autoDownloadOption);
    changeAuto(autoDownloadOption);
    connect(autoBox, &QCheckBox::toggled, this, &CDownloadWidget::changeAuto);
}

// The window shows what the workflow is doing when it opens.
void CDownloadWidget::showFirstLook()
{
    const bool runShown = !idle || autoRun;
    if (runShown) {
        stopButton->setEnabled(true);
        setStatus(text("MD0039Message"));
        progressBar->setMaximum(totalBytes);
        progressBar->show();
    } else if (autoWait) {
        stopButton->setEnabled(true);
        setStatus(text("MD0047"));
    } else {
        stopButton->setEnabled(false);
        setStatus(text("MD0038Message"));
    }
    const bool busy = runShown || autoWait;
    moduleTree->setEnabled(!busy);
    descriptionBox->setEnabled(!busy);
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

bool CDownloadWidget::hasWindow()
{
    return dialog != nullptr;
}

void CDownloadWidget::setStatus(const QString& message, int timeoutMs)
{
    if (statusBar) {
        if (message.isEmpty())
            statusBar->clearMessage();
        else
            statusBar->showMessage(message, timeoutMs);
    }
}

void CDownloadWidget::showStatusMessage(const QString& message, int timeoutMs)
{
    setStatus(message, timeoutMs);
}

void CDownloadWidget::changeCursor(bool wait)
{
    if (!dialog)
        return;
    if (wait)
        dialog->setCursor(Qt::WaitCursor);
    else
        dialog->unsetCursor();
}

void CDownloadWidget::resetProgress()
{
    if (!progressBar)
        return;
    progressBar->setMaximum(0);
    progressBar->setValue(0);
    progressBar->reset();
    progressBar->hide();
}

void CDownloadWidget::changeState()
{
    if (!dialog)
        return;
    for (int i = 0; i < moduleTree->topLevelItemCount(); ++i) {
        auto* row = dynamic_cast<CDlCheckListItem*>(moduleTree->topLevelItem(i));
        if (row && (row->flags() & Qt::ItemIsUserCheckable) && row->checkState(0) == Qt::Checked) {
            startButton->setEnabled(true);
            refreshButton->setEnabled(false);
            return;
        }
    }
    startButton->setEnabled(false);
    refreshButton->setEnabled(true);
}

bool CDownloadWidget::isSelect() const
{
    if (!dialog)
        return false;
    for (int i = 0; i < moduleTree->topLevelItemCount(); ++i) {
        auto* row = dynamic_cast<CDlCheckListItem*>(moduleTree->topLevelItem(i));
        if (row && (row->flags() & Qt::ItemIsUserCheckable)
            && row->data(0, Qt::CheckStateRole).toInt() == Qt::Checked)
            return true;
    }
    return false;
}

void CDownloadWidget::closeConvertor()
{
    if (dialog) {
        autoDownloadOption = autoBox->isChecked();
        showWindowOption = showWindowBox->isChecked();
    }
    saveParam->saveStartParam(autoDownloadOption, showWindowOption);
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

void CDownloadWidget::showIdleControls()
{
    if (!dialog)
        return;
    moduleTree->setEnabled(true);
    descriptionBox->setEnabled(true);
    refreshButton->setEnabled(true);
    stopButton->setEnabled(false);
    startButton->setText(text("MD0011"));
    changeState();
}

// ---------------------------------------------------------------------------
// Rows of the tree

void CDownloadWidget::appendConfigurationRow(const dlModule& configuration,
                                             const QString& moduleListFile)
{
    if (!moduleTree)
        return;
    dlListModule modules;
    parseModuleListFile(moduleListFile, modules, fieldText(configuration.name));
    auto* row = new CDlCheckListItem(this, moduleTree, fieldText(configuration.name),
                                     CDlCheckListItem::CheckBox);
    fillColumns(row, configuration);
    row->module = configuration;
    row->textSlot1 = fieldText(configuration.descPath);
    row->childMarker = modules.count > 0;
    for (int i = 0; i < modules.count; ++i) {
        auto* child = new CDlListViewItem(static_cast<QTreeWidgetItem*>(row));
        fillColumns(child, modules.modules[i]);
        child->module = modules.modules[i];
    }
}

void CDownloadWidget::appendModuleRow(const dlModule& record)
{
    if (!moduleTree)
        return;
    auto* row = new CDlCheckListItem(this, moduleTree, fieldText(record.name),
                                     CDlCheckListItem::CheckBox);
    fillColumns(row, record);
    row->module = record;
    row->textSlot1 = getLocalPath(downloadDir, fieldText(record.descPath));
}

ModuleListSources CDownloadWidget::listSources() const
{
    ModuleListSources sources;
    sources.configs = installedConfigs.data();
    sources.configCount = int(installedConfigs.size());
    sources.autoMode = autoMode;
    sources.autoModules = autoModuleTable.data();
    sources.autoModuleCount = int(autoModuleTable.size());
    return sources;
}

void CDownloadWidget::parseModuleListFile(const QString& file, dlListModule& list,
                                          const QString& configName)
{
    parseFileList(file, list, configName, listSources(), CInstalledProducts(moduleLink()));
}

void CDownloadWidget::parseConfigListFile(const QString& file, dlListModule& list)
{
    parseConfigList(file, list, autoMode, CInstalledProducts(moduleLink()));
}

void CDownloadWidget::initFrame()
{
    if (moduleTree) {
        moduleTree->clear();
        startButton->setText(text("MD0011"));
    }
    configList.clear();
    moduleList.clear();
    parseConfigListFile(downloadDir + configDescName, configList);
    parseModuleListFile(downloadDir + moduleDescName, moduleList, QString());
    for (int i = 0; i < configList.count; ++i) {
        const dlModule& configuration = configList.modules[i];
        appendConfigurationRow(configuration,
                               getLocalPath(downloadDir, fieldText(configuration.serverPath)));
    }
    for (int i = 0; i < moduleList.count; ++i)
        appendModuleRow(moduleList.modules[i]);

    if (dialog) {
        statusBar->clearMessage();
        moduleTree->setEnabled(true);
        refreshButton->setEnabled(true);
        descriptionBox->setEnabled(true);
        moduleTree->setFocus();
        if (moduleTree->topLevelItemCount() > 0)
            moduleTree->setCurrentItem(moduleTree->topLevelItem(0));
        if (moduleTree->topLevelItemCount() == 0) {
            statusBar->showMessage(text("MD0041Message"));
            infoLabel->setText(text("MD0018Message") + QStringLiteral("\r\n") + text("MD0041Message"));
        } else {
            infoLabel->setText(text("MD0016Message") + QStringLiteral("\r\n") + text("MD0017Message"));
        }
        infoLabel->repaint();
        startButton->setEnabled(isSelect());
    }
    searchRunning = false;
    fetchingDescriptions = false;
    changeCursor(false);
}

void CDownloadWidget::collectChecked(std::vector<dlModule>& out) const
{
    if (!moduleTree)
        return;
    for (int i = 0; i < moduleTree->topLevelItemCount(); ++i) {
        auto* row = dynamic_cast<CDlCheckListItem*>(moduleTree->topLevelItem(i));
        if (!row || !(row->flags() & Qt::ItemIsUserCheckable) || row->checkState(0) != Qt::Checked)
            continue;
        if (row->childCount() == 0) {
            out.push_back(row->module);
            continue;
        }
        for (int c = 0; c < row->childCount(); ++c)
            if (auto* child = dynamic_cast<CDlListViewItem*>(row->child(c)))
                out.push_back(child->module);
    }
}

void CDownloadWidget::selectionChanged()
{
    if (!moduleTree)
        return;
    const QList<QTreeWidgetItem*> selected = moduleTree->selectedItems();
    if (selected.isEmpty())
        return;
    QTreeWidgetItem* item = selected.first();
    if (!item->parent()) {
        auto* row = dynamic_cast<CDlCheckListItem*>(item);
        if (row && !row->childMarker)
            insertDescription(row->textSlot1, 0, 0);
        return;
    }
    if (auto* parentRow = dynamic_cast<CDlCheckListItem*>(item->parent()))
        insertDescription(parentRow->textSlot1, 0, 0);
}

void CDownloadWidget::itemClickedSlot(QTreeWidgetItem*, int)
{
    changeState();
}

void CDownloadWidget::doubleClickedToDl(QTreeWidgetItem* item)
{
    if (!item)
        return;
    if (auto* row = dynamic_cast<CDlCheckListItem*>(item); row && row->childMarker)
        return;
    item->setExpanded(false);
    // The dialog has a single tree; the move buttons of the two-tree layout
    // are not part of it, so collapsing is all that remains to do.
}

void CDownloadWidget::doubleClickedFromDl(QTreeWidgetItem* item)
{
    if (!item || !moduleTree)
        return;
    if (QTreeWidgetItem* parent = item->parent())
        parent->removeChild(item);
    else if (item->treeWidget())
        item->treeWidget()->takeTopLevelItem(item->treeWidget()->indexOfTopLevelItem(item));
    moduleTree->addTopLevelItem(item);
    item->setExpanded(false);
}

void CDownloadWidget::insertDescription(QString file, int, int)
{
    if (!descriptionBox)
        return;
    if (!file.isEmpty() && QFile::exists(file)) {
        QFile description(file);
        if (!description.open(QIODevice::ReadOnly))
            return;
        descriptionBox->clear();
        descriptionBox->setText(QString::fromLocal8Bit(description.readAll()));
        return;
    }
    descriptionBox->clear();
    descriptionBox->setText(text("MD0042"));
}

// ---------------------------------------------------------------------------
// The list chain

void CDownloadWidget::getConfigDesc()
{
    // A new search shows its own rows, not after the last search's (which
    // may still be ticked from a finished installation).
    if (moduleTree)
        moduleTree->clear();
    fetchingDescriptions = true;
    searchRunning = true;
    listsFetchedOnce = true;
    DownloadFile(configDescName, downloadDir, 0, CDownloadHttp::KindParseFileTxt, 0, false);
}

void CDownloadWidget::getModuleDesc()
{
    DownloadFile(moduleDescName, downloadDir, 1, CDownloadHttp::KindParseFileTxt, 0, false);
}

void CDownloadWidget::parseFileTxt(QString file, int param)
{
    if (param == 0) {
        configList.clear();
        parseConfigListFile(file, configList);
        if (!dialog)
            return;
        if (configList.count == 0) {
            getModuleDesc();
            return;
        }
        configIndex = 0;
        DownloadFile(fieldText(configList.modules[0].descPath), downloadDir, 0,
                     CDownloadHttp::KindParseFileTxt2, 0, false);
        return;
    }

    moduleList.clear();
    parseModuleListFile(file, moduleList, QString());
    if (moduleList.count == 0) {
        finishListChain();
        return;
    }
    moduleDescIndex = 0;
    DownloadFile(fieldText(moduleList.modules[0].descPath), downloadDir, 1,
                 CDownloadHttp::KindParseFileTxt1, 0, false);
}

void CDownloadWidget::parseFileTxt2(QString file, int)
{
    if (configIndex >= configList.count)
        return;
    dlModule& configuration = configList.modules[configIndex];
    setDlText(configuration.descPath, file.toLocal8Bit());
    DownloadFile(fieldText(configuration.serverPath), downloadDir, 0,
                 CDownloadHttp::KindParseFileTxt1, 0, false);
    ++configIndex;
}

void CDownloadWidget::parseFileTxt1(QString file, int param)
{
    if (param == 0) {
        if (configIndex >= 1 && configIndex <= configList.count)
            appendConfigurationRow(configList.modules[configIndex - 1], file);
        if (configIndex < configList.count)
            DownloadFile(fieldText(configList.modules[configIndex].descPath), downloadDir, 0,
                         CDownloadHttp::KindParseFileTxt2, 0, false);
        else
            getModuleDesc();
        return;
    }

    if (moduleDescIndex < moduleList.count)
        appendModuleRow(moduleList.modules[moduleDescIndex]);
    ++moduleDescIndex;
    if (moduleDescIndex < moduleList.count) {
        DownloadFile(fieldText(moduleList.modules[moduleDescIndex].descPath), downloadDir, 1,
                     CDownloadHttp::KindParseFileTxt1, 0, false);
        return;
    }
    finishListChain();
    if (moduleTree && moduleTree->topLevelItemCount() > 0)
        moduleTree->setCurrentItem(moduleTree->topLevelItem(0));
}

void CDownloadWidget::showListResultTexts()
{
    if (!dialog)
        return;
    if (moduleTree->topLevelItemCount() > 0) {
        infoLabel->setText(text("MD0016Message") + QStringLiteral("\r\n") + text("MD0017Message"));
        statusBar->clearMessage();
    } else {
        statusBar->showMessage(text("MD0041Message"));
        infoLabel->setText(text("MD0018Message") + QStringLiteral("\r\n") + text("MD0041Message"));
    }
}

void CDownloadWidget::finishListChain()
{
    showListResultTexts();
    fetchingDescriptions = false;
    searchRunning = false;
    changeCursor(false);
    if (dialog) {
        if (!isSelect())
            startButton->setText(text("MD0011"));
        moduleTree->setEnabled(true);
        descriptionBox->setEnabled(true);
        changeState();
    }
    emit SignalListsShown();
}

// ---------------------------------------------------------------------------
// Connection state, timer and continuation

bool CDownloadWidget::isOffLine()
{
    return connectState == 0;
}

void CDownloadWidget::getProxyData(mwiProxyState& state)
{
    if (CDownloadModule* owner = module())
        owner->GetProxyData(state);
}

void CDownloadWidget::setStateConnect(int state)
{
    if (state == connectState)
        return;
    connectState = state;
    if (state == 0) {
        // A run cut off by going off-line goes on when the host is back
        // on-line, from what the state file says it still lacks.
        if (httpClient->abort() == 0 && (!idle || autoRun || autoWait))
            pendingContinue = true;
        return;
    }
    if (pendingContinue) {
        pendingContinue = false;
        continueDownload();
    }
}

void CDownloadWidget::DownloadFile(QString const& name, QString const& dir, int param, int kind,
                                   int chunk, bool progress)
{
    if (isOffLine())
        return;
    httpClient->getFile(name, dir, param, kind, chunk, progress);
}

void CDownloadWidget::startTimer()
{
    if (!outTimer)
        return;
    if (outTimer->isActive())
        outTimer->stop();
    saveParam->getDelayAutoStart(autoDelay);
    outTimer->setSingleShot(true);
    outTimer->start(autoDelay * 1000);
}

void CDownloadWidget::startTimerIsOutTime()
{
    if (outTimer->isActive())
        outTimer->stop();
    continueDownload();
}

void CDownloadWidget::continueDownload()
{
    if (isOffLine()) {
        pendingContinue = true;
        return;
    }
    if (saveParam->getCountLastDownloadModule() < 1) {
        autoRun = false;
        startAutoDownload();
        return;
    }
    autoRun = true;
    const int toFetch = saveParam->getCountStateLastDownloadModule(dlStateToFetch);
    if (toFetch > 0) {
        lastModules.assign(size_t(toFetch), emptyDlModule());
        saveParam->getLastDownloadModule(dlStateToFetch, toFetch, lastModules.data());
        fileToDl->clearStruct();
        for (const dlModule& record : lastModules)
            fileToDl->addToStuct(record);
        DownloadFile(fileListName, downloadDir, 1, CDownloadHttp::KindGetNewModule, 0, false);
        return;
    }
    if (saveParam->getCountStateLastDownloadModule(dlStateFetched) == 0) {
        saveParam->getCountStateLastDownloadModule(dlStateInstalled);
        saveParam->clearLastDownload();
        autoRun = false;
        startAutoDownload();
        return;
    }
    changeModules();
}

// ---------------------------------------------------------------------------
// A run: probe every size, record the run, fetch one file after another

void CDownloadWidget::startDownload()
{
    if (moduleIndex == 0) {
        std::vector<dlModule> checked;
        collectChecked(checked);
        for (dlModule record : checked) {
            setDlText(record.localPath,
                      getLocalPath(downloadDir, fieldText(record.serverPath)).toLocal8Bit());
            if (fileToDl->existModule(record) < 0)
                fileToDl->addToStuct(record);
        }
        if (fileToDl->getModuleCount() > 0) {
            moduleIndex = 0;
            totalBytes = 0;
            probeNext();
        }
        return;
    }
    if (fileToDl->getModuleCount() > 0)
        fetchRecord(moduleIndex);
}

// Probes the size of the record at moduleIndex and moves on by one.
void CDownloadWidget::probeNext()
{
    if (moduleIndex == 0)
        probedSizes.clear();
    dlModule record = emptyDlModule();
    fileToDl->getModuleInfo(moduleIndex, record);
    ++moduleIndex;
    httpClient->getFileSize(fieldText(record.serverPath));
}

// Fetches the record at index and points moduleIndex past it.
void CDownloadWidget::fetchRecord(int index)
{
    dlModule record = emptyDlModule();
    fileToDl->getModuleInfo(index, record);
    setStatus(text("MD0044") + QLatin1Char(' ') + fieldText(record.name));
    moduleIndex = index + 1;
    DownloadFile(fieldText(record.serverPath), downloadDir, 1, CDownloadHttp::KindDownloadModule,
                 0, true);
}

void CDownloadWidget::getSizeFile(long size)
{
    probedSizes.push_back(size);
    totalBytes += int(size);
    if (moduleIndex < fileToDl->getModuleCount()) {
        probeNext();
        return;
    }
    bytesOnDisk = 0;
    if (progressBar) {
        progressBar->show();
        progressBar->setMaximum(totalBytes);
    }
    moduleIndex = 0;

    int count = fileToDl->getModuleCount();
    if (!autoRun) {
        recordRun(count);
    } else {
        for (int i = 0; i < count; ++i) {
            dlModule record = emptyDlModule();
            fileToDl->getModuleInfo(i, record);
            saveParam->changeStateLastDownloadModule(record, dlStateToFetch);
        }
    }

    if (fileToDl->getModuleCount() <= 0) {
        changeModules();
        return;
    }
    fetchRecord(0);
}

// Whether the host knows the module at all (any version installed).
bool CDownloadWidget::askHostForModule(const dlModule& record)
{
    const VersionParts version = splitVersion(fieldText(record.version));
    coreModuleQuery query;
    std::memset(&query, 0, sizeof query);
    copyToField(query.name, dlText(record.name));
    query.major = version.major;
    query.minor = version.minor;
    query.build = version.build;
    CDownloadModule* owner = module();
    return sendToHost(owner ? owner->hostPointer() : nullptr, HostMsg::QueryModuleVersion,
                      reinterpret_cast<intptr_t>(&query), 0)
        != -1;
}

// Writes the run into the state file. A file that the host knows and that
// already lies complete in the download folder is not fetched again: it
// leaves the set as fetched and its size leaves the total.
void CDownloadWidget::recordRun(int& count)
{
    saveParam->createLastDownload(count);
    // probed: the record's place in the probing order, which dropping
    // records from the set does not change.
    for (int i = 0, probed = 0; i < count; ++i, ++probed) {
        dlModule record = emptyDlModule();
        fileToDl->getModuleInfo(i, record);
        const QString localFile = fieldText(record.localPath);
        const bool known = askHostForModule(record);
        const long probedSize = probed < int(probedSizes.size()) ? probedSizes[size_t(probed)] : 0;
        if (!known || !isCompleteOnDisk(localFile, probedSize)) {
            saveParam->saveLastDownloadModule(record, dlStateToFetch);
            continue;
        }
        fileToDl->delToStuct(record);
        record.state = dlStateFetched;
        saveParam->saveLastDownloadModule(record, dlStateFetched);
        totalBytes -= fileSizeOnDisk(localFile);
        --count;
        --i;
    }
}

void CDownloadWidget::addBytesOnDisk(long bytes)
{
    bytesOnDisk += int(bytes);
}

void CDownloadWidget::setProgress(int done)
{
    lastDone = done;
    if (progressBar && (autoRun || autoWait || !idle)) {
        progressBar->setMaximum(totalBytes);
        dlModule record = emptyDlModule();
        fileToDl->getModuleInfo(moduleIndex - 1, record);
        const char* prefix = autoRun ? "MD0045" : (autoWait ? "MD0046" : "MD0044");
        setStatus(text(prefix) + QLatin1Char(' ') + fieldText(record.name));
    }
    if (progressBar)
        progressBar->setValue(qMin(done + bytesOnDisk, progressBar->maximum()));
}

void CDownloadWidget::downloadModule(QString file, bool notFound)
{
    if (notFound) {
        errorRead();
        return;
    }
    dlModule arrived = emptyDlModule();
    fileToDl->getModuleInfo(moduleIndex - 1, arrived);
    // Records the automatic mode chose carry no local path yet; installation
    // needs to know where each file landed.
    setDlText(arrived.localPath, file.toLocal8Bit());
    fileToDl->changeStruct(moduleIndex - 1, arrived);
    saveParam->changeStateLastDownloadModule(arrived, dlStateFetched);

    if (moduleIndex < fileToDl->getModuleCount()) {
        fetchRecord(moduleIndex);
        return;
    }
    fileToDl->clearStruct();
    moduleIndex = 0;
    autoWait = false;
    showIdleControls();
    resetProgress();
    setStatus(QString());
    if (startButton)
        startButton->setText(text("MD0011"));
    changeCursor(false);
    idle = true;
    errorCount = 0;
    saveParam->getCountStateLastDownloadModule(dlStateFetched);
    changeModules();
}


void CDownloadWidget::errorRead()
{
    if (errorCount < 3) {
        if (autoRun) {
            continueDownload();
        } else if (!autoWait) {
            // A manual run starts again from its ticked rows.
            idle = true;
            moduleIndex = 0;
            fileToDl->clearStruct();
            clickStartDownload();
        } else {
            startAutoDownload();
            ++errorCount;
            if (dialog) {
                progressBar->setValue(0);
                statusBar->clearMessage();
                startButton->setEnabled(false);
                stopButton->setEnabled(true);
                refreshButton->setEnabled(false);
                changeCursor(true);
                setStatus(text("MD0047"));
            }
            return;
        }
        ++errorCount;
        return;
    }

    errorCount = 0;
    QMessageBox::information(dialog ? static_cast<QWidget*>(dialog) : nullptr, text("MD0048"),
                             text("MD0049Message"));
    if (autoRun)
        startAutoDownload();
    idle = true;
    autoRun = false;
    moduleIndex = 0;
    fileToDl->clearStruct();
    resetProgress();
    setStatus(text("MD0038Message"));
    clearDownloadDir();
    getConfigDesc();
    initFrame();
}

// ---------------------------------------------------------------------------
// The buttons

void CDownloadWidget::clickStartDownload()
{
    if (idle) {
        if (startButton)
            startButton->setText(text("C0082"));
        idle = false;
        if (dialog) {
            moduleTree->setEnabled(false);
            stopButton->setEnabled(true);
        }
        changeCursor(true);
        setStatus(text("MD0043"));
        moduleIndex = 0;
        bytesOnDisk = 0;
        totalBytes = 0;
        if (progressBar) {
            progressBar->setMaximum(0);
            progressBar->setValue(bytesOnDisk);
        }
        fileToDl->clearStruct();
        startDownload();
        return;
    }

    if (httpClient->abort() != 0)
        return;
    fileToDl->clearStruct();
    if (startButton)
        startButton->setText(text("MD0011"));
    idle = true;
    if (dialog) {
        moduleTree->setEnabled(true);
        stopButton->setEnabled(false);
        refreshButton->setEnabled(false);
    }
    --moduleIndex;
    setStatus(text("C0082"), 500);
    changeCursor(false);
}

void CDownloadWidget::deleteRunFiles()
{
    const int stored = qMax(saveParam->getCountLastDownloadModule(), 0);
    if (stored == 0)
        return;
    std::vector<dlModule> records;
    for (int state : {dlStateToFetch, dlStateFetched, dlStateInstalled, dlStateFailed}) {
        const int count = saveParam->getCountStateLastDownloadModule(state);
        if (count <= 0)
            continue;
        std::vector<dlModule> some(size_t(count), emptyDlModule());
        saveParam->getLastDownloadModule(state, count, some.data());
        records.insert(records.end(), some.begin(), some.end());
    }
    for (const dlModule& record : records) {
        const QString local = getLocalPath(downloadDir, fieldText(record.serverPath));
        if (QFile::exists(local))
            QFile::remove(local);
    }
}

void CDownloadWidget::clickStopDownload()
{
    if (httpClient->abort() != 0)
        return;
    fileToDl->clearStruct();
    deleteRunFiles();
    saveParam->clearLastDownload();
    if (startButton)
        startButton->setText(text("MD0011"));
    if (moduleTree) {
        for (int i = 0; i < moduleTree->topLevelItemCount(); ++i) {
            QTreeWidgetItem* row = moduleTree->topLevelItem(i);
            if (row->flags() & Qt::ItemIsUserCheckable)
                row->setCheckState(0, Qt::Unchecked);
        }
    }
    changeState();
    idle = true;
    --moduleIndex;
    if (progressBar)
        progressBar->setValue(0);
    setStatus(QStringLiteral("Aborted"), 1000);
    changeCursor(false);

    if (autoRun)
        return;
    if (autoWait) {
        autoWait = false;
        if (!refreshPending) {
            initFrame();
        } else {
            refreshPending = false;
            clearDownloadDir();
            changeCursor(true);
            setStatus(text("MD0038Message"));
            getConfigDesc();
        }
    }
}

void CDownloadWidget::clickRefreshDownload()
{
    clearDownloadDir();
    if (dialog) {
        moduleTree->clear();
        descriptionBox->clear();
        startButton->setEnabled(false);
        stopButton->setEnabled(false);
        refreshButton->setEnabled(false);
        moduleTree->setEnabled(false);
        descriptionBox->setEnabled(false);
        infoLabel->setText(text("MD0038Message"));
    }
    changeCursor(true);
    setStatus(text("MD0038Message"));
    refreshPending = true;
    getConfigDesc();
}

// ---------------------------------------------------------------------------
// Continuation: the chosen set brought up to date with a fresh module list

void CDownloadWidget::getNewModule(QString file)
{
    if (!::getNewModule(file, *fileToDl, *saveParam, listSources(), CInstalledProducts(moduleLink())))
        return;
    moduleIndex = 0;
    totalBytes = 0;
    probeNext();
}

// ---------------------------------------------------------------------------
// The automatic mode

void CDownloadWidget::startAutoDownload()
{
    bool showWindow = showWindowOption;
    saveParam->getStartParam(autoMode, showWindow);
    if (autoMode && QFile::exists(stateFilePath)) {
        installedConfigs = CInstalledProducts(moduleLink()).configurations();
        const int current =
            getCurrentConfigurationIndex(installedConfigs.data(), int(installedConfigs.size()));
        if (current < 0) {
            QMessageBox::information(dialog ? static_cast<QWidget*>(dialog) : nullptr,
                                     text("MD0050"), text("MD0051"), QMessageBox::Ok);
            return;
        }
        currentConfig = installedConfigs[size_t(current)];
        currentConfigValid = true;
        autoModuleTable = CInstalledProducts(moduleLink()).moduleTable(currentConfig);
        autoWait = true;
        DownloadFile(configDescName, downloadDir, 1, CDownloadHttp::KindAutoDownloadConfig, 0,
                     false);
        return;
    }

    autoMode = false;
    if (dialog) {
        progressBar->hide();
        changeCursor(true);
        setStatus(text("MD0038Message"));
        infoLabel->setText(text("MD0038Message"));
        startButton->setEnabled(false);
        refreshButton->setEnabled(false);
        searchRunning = true;
        // The window asks the server every time it opens, so that it never
        // shows lists older than the window.
        clearDownloadDir();
        getConfigDesc();
        return;
    }
    if (listsFetchedOnce) {
        clearDownloadDir();
        getConfigDesc();
    } else {
        initFrame();
    }
}

void CDownloadWidget::autoDownloadConfig(QString file)
{
    dlListModule offered;
    parseConfigListFile(file, offered);
    if (offered.count == 0) {
        autoMode = false;
        autoWait = false;
        return;
    }
    const QByteArray currentName = fieldBytes(currentConfig.name);
    for (int i = 0; i < offered.count; ++i) {
        const dlModule& configuration = offered.modules[i];
        if (dlText(configuration.name) != currentName)
            continue;
        const VersionParts version = splitVersion(fieldText(configuration.version));
        const bool good =
            isGoodConfigForAuto(version.major, version.minor, version.build, currentConfig);
        DownloadFile(fieldText(configuration.serverPath), downloadDir, good ? 0 : 1,
                     CDownloadHttp::KindAutoDownloadConfigDescr, 0, false);
        return;
    }
    autoWait = false;
}

// Adds the newer of the offered files to the chosen set: configuration files
// as offered, modules checked again against the automatic run's table (a
// module the table does not know is taken, as in the list parser).
void CDownloadWidget::takeOfferedForAuto(const dlListModule& offered)
{
    const QByteArray configName = fieldBytes(currentConfig.name);
    for (int i = 0; i < offered.count; ++i) {
        dlModule record = offered.modules[i];
        bool take = dlText(record.type) == "2";
        if (!take) {
            take = true;
            for (const coreModuleEntry& installed : autoModuleTable) {
                if (fieldBytes(installed.name) != dlText(record.name))
                    continue;
                take = isNewVersionModule(installed.major, installed.minor, installed.build,
                                          installed.fourth, fieldText(record.version),
                                          fieldText(record.versionExtra));
                break;
            }
        }
        if (!take)
            continue;
        setDlText(record.localPath, QByteArray());
        setDlText(record.auxPath, configName);
        record.state = dlStateAutoChosen;
        if (fileToDl->existModule(record) < 0)
            fileToDl->addToStuct(record);
    }
}

void CDownloadWidget::autoDownloadConfigDescr(QString file, int param)
{
    dlListModule offered;
    parseModuleListFile(file, offered, QString::fromLocal8Bit(fieldBytes(currentConfig.name)));
    if (param == 0) {
        fileToDl->clearStruct();
        takeOfferedForAuto(offered);
        DownloadFile(moduleDescName, downloadDir, 1, CDownloadHttp::KindAutoDownloadConfigDescr, 0,
                     false);
        return;
    }

    takeOfferedForAuto(offered);
    const int count = fileToDl->getModuleCount();
    if (count > 0) {
        saveParam->createLastDownload(count);
        for (int i = 0; i < count; ++i) {
            dlModule record = emptyDlModule();
            fileToDl->getModuleInfo(i, record);
            saveParam->saveLastDownloadModule(record, dlStateToFetch);
        }
        // The answer does not stop the run: the user is told, the run goes on.
        CDownloadMessInfo question(this, text("MD0020"), text("MD0021"));
        question.start();
        moduleIndex = 0;
        totalBytes = 0;
        probeNext();
        return;
    }
    saveParam->clearLastDownload();
    clearDownloadDir();
    changeCursor(false);
    setStatus(text("MD0041Message"));
    autoWait = false;
    showIdleControls();
    getConfigDesc();
}

void CDownloadWidget::SlotDownloadFinished(Download::CDownloadManager const&, QString const& url)
{
    LogHelper::ShowLogInfo(logTypeMessage, logLevel2, QStringLiteral("Fetched ") + url);
}
