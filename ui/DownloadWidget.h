#pragma once
// The update dialog: it finds the offered files (list chain), lets the user
// or the automatic mode choose, runs the download and hands the result to
// installation. The object lives from the host's "open" command (3066) until
// the next one or the module's end; the "Updates" window is built on demand
// (initWindow) and the workflow runs with or without it. Everything runs on
// the GUI thread, driven by the HTTP client's completion calls and timers.
#include <vector>

#include <QObject>
#include <QString>

#include "protocol/HostRecords.h"
#include "transfer/DownloadHttpClient.h"
#include "protocol/DialogRecords.h"
#include "update/DlModule.h"
#include "protocol/UpdateRecords.h"

class ChangeModulesThread;
class CDownloadHttp;
struct ModuleListSources;
class CFileToDl;
class CSaveParamDownload;
class CTextEdit;
class QCheckBox;
class QDialog;
class QGroupBox;
class QLabel;
class QProgressBar;
class QPushButton;
class QStatusBar;
class QTabWidget;
class QTimer;
class QTreeWidget;
class QTreeWidgetItem;
class QWidget;
namespace Download { class CDownloadManager; }

class CDownloadWidget : public QObject, public IDownloadHttpClient {
    Q_OBJECT
public:
    CDownloadWidget();
    ~CDownloadWidget() override;

    // Folders and settings.
    QString getBackupDirPath() const;
    void clearDownloadDir();
    // Keeps the window's options and clears the download folder (host 3081).
    void closeModule();

    // The window.
    void initWindow();
    void changeState();
    void initFrame();
    void pressMenu(mm_menu_item* item);
    bool isSelect() const;

    // The list chain.
    void getConfigDesc();
    void getModuleDesc();
    void insertDescription(QString file, int, int);

    // The download run.
    bool isOffLine() override;
    void getProxyData(mwiProxyState& state) override;
    void setStateConnect(int state);
    void DownloadFile(QString const& name, QString const& dir, int param, int kind, int chunk,
                      bool progress);
    void startDownload();
    void errorRead();
    void continueDownload();
    void startTimer();

    // Installation: the fetched files are handed to the updater program on a
    // worker thread while a progress dialog waits; then the report.
    void changeModules();
    int changeModulesInnerWork(ChangeModulesThread* thread);
    void setInfoAboutSuccessModuleUpdate(bool success, dlModule& record, int configIndex,
                                         QString text);
    // Moves source into destination, keeping a copy of what it replaces in
    // backup; false when the file could not be put in place.
    bool moveFiles(QString source, QString destination, QString backup, dlModule record);
    void showUpdateReport(int count);

    // The automatic mode.
    void startAutoDownload();

    // Completion calls of the HTTP client.
    bool hasWindow() override;
    void showStatusMessage(const QString& text, int timeoutMs) override;
    void addBytesOnDisk(long bytes) override;
    void setProgress(int done) override;
    void getSizeFile(long size) override;
    void parseFileTxt(QString file, int param) override;
    void parseFileTxt1(QString file, int param) override;
    void parseFileTxt2(QString file, int param) override;
    void downloadModule(QString file, bool notFound) override;
    void getNewModule(QString file) override;
    void autoDownloadConfig(QString file) override;
    void autoDownloadConfigDescr(QString file, int param) override;

    // Read access for the host's scripted mode and for tests.
    QDialog* dialogWindow() const { return dialog; }
    QDialog* updateReport() const { return reportDialog; }
    QTreeWidget* tree() const { return moduleTree; }
    QStatusBar* statusLine() const { return statusBar; }
    QProgressBar* progress() const { return progressBar; }
    QLabel* infoText() const { return infoLabel; }
    QPushButton* refreshControl() const { return refreshButton; }
    QPushButton* startControl() const { return startButton; }
    QPushButton* stopControl() const { return stopButton; }
    QPushButton* closeControl() const { return closeButton; }
    QCheckBox* autoControl() const { return autoBox; }
    QCheckBox* showWindowControl() const { return showWindowBox; }
    CTextEdit* descriptionView() const { return descriptionBox; }
    CDownloadHttp* http() const { return httpClient; }
    const CFileToDl& chosen() const { return *fileToDl; }
    QString serverBaseUrl() const { return serverUrl; }
    QString brokerBaseUrl() const { return brokerUrl; }
    QString downloadFolder() const { return downloadDir; }
    bool settingsFileExisted() const { return configFileExists; }
    int menuIdentifier() const { return menuId; }
    int connectionState() const { return connectState; }
    int autoDelaySeconds() const { return autoDelay; }
    QTimer* autoStartTimer() const { return outTimer; }

public slots:
    void closeConvertor();
    void selectionChanged();
    void itemClickedSlot(QTreeWidgetItem* item, int column);
    void doubleClickedToDl(QTreeWidgetItem* item);
    void doubleClickedFromDl(QTreeWidgetItem* item);
    void clickRefreshDownload();
    void clickStartDownload();
    void clickStopDownload();
    void changeAuto(bool on);
    void closeDialog();
    void startTimerIsOutTime();
    void SlotDownloadFinished(Download::CDownloadManager const& manager, QString const& url);

signals:
    // The list chain has shown its result (rows or "New modules not found").
    void SignalListsShown();
    // A run has fetched everything; installation takes over with this many
    // records in state 2.
    void SignalInstallationStarts(int fetched);
    // Installation has ended with the worker's result (-1 failed, 0 nothing
    // to install, else the records of the run); the report has been shown.
    void SignalInstallationEnded(int result);

private:
    void askHostAtStart();
    void setUpFolders();
    void buildControls();
    void showFirstLook();
    void windowClosed();
    QString text(const char* key) const;
    void setStatus(const QString& message, int timeoutMs = 0);
    void changeCursor(bool wait);
    void resetProgress();
    void showIdleControls();

    // Rows of the tree.
    void appendConfigurationRow(const dlModule& configuration, const QString& moduleListFile);
    void appendModuleRow(const dlModule& module);
    void collectChecked(std::vector<dlModule>& out) const;
    void showListResultTexts();
    void finishListChain();
    ModuleListSources listSources() const;
    void parseModuleListFile(const QString& file, dlListModule& list, const QString& configName);
    void parseConfigListFile(const QString& file, dlListModule& list);

    // The run.
    void probeNext();
    void fetchRecord(int index);
    void recordRun(int& count);
    void deleteRunFiles();
    bool askHostForModule(const dlModule& record);
    // Runs f on the GUI thread, waiting for it when called from the worker:
    // every host call and state-file change happens on the GUI thread.
    template <class F>
    void onGuiThread(F f);
    QWidget* messageParent() const;
    std::vector<dlModule> storedRecords(int state, int count);
    void takeOfferedForAuto(const dlListModule& offered);

    // Settings and folders.
    QString downloadDir;
    QString configFilePath;
    bool configFileExists = true;
    QString serverUrl;
    QString brokerUrl;
    QString configDescName;
    QString moduleDescName;
    QString configBrokerDescName;
    QString moduleBrokerDescName;
    QString fileListName;
    QString stateFilePath;
    CDownloadHttp* httpClient = nullptr;
    Download::CDownloadManager* downloadManager = nullptr;
    CSaveParamDownload* saveParam = nullptr;
    CFileToDl* fileToDl = nullptr;
    QTimer* outTimer = nullptr;
    int outTimeValue = 300;

    // What the host reported.
    std::vector<coreNameConfig> installedConfigs;
    int menuId = 0;
    void* mainWindow = nullptr;

    // The window.
    QDialog* dialog = nullptr;
    QGroupBox* buttonFrame = nullptr;
    QPushButton* refreshButton = nullptr;
    QPushButton* startButton = nullptr;
    QPushButton* stopButton = nullptr;
    QPushButton* closeButton = nullptr;
    QStatusBar* statusBar = nullptr;
    QProgressBar* progressBar = nullptr;
    QTabWidget* pages = nullptr;
    QWidget* taskPage = nullptr;
    QLabel* infoLabel = nullptr;
    QTreeWidget* moduleTree = nullptr;
    CTextEdit* descriptionBox = nullptr;
    QWidget* paramPage = nullptr;
    QGroupBox* paramGroup = nullptr;
    QCheckBox* autoBox = nullptr;
    QCheckBox* showWindowBox = nullptr;
    QLabel* autoLabel = nullptr;
    QLabel* showWindowLabel = nullptr;
    QDialog* reportDialog = nullptr;
    bool autoDownloadOption = false;
    bool showWindowOption = false;

    // The list chain.
    dlListModule configList;
    dlListModule moduleList;
    int configIndex = 0;
    int moduleDescIndex = 0;
    bool fetchingDescriptions = false;
    bool searchRunning = false;
    bool listsFetchedOnce = false;
    bool refreshPending = false;

    // The run.
    int moduleIndex = 0;
    std::vector<long> probedSizes;  // each probed record's size, in probing order
    int totalBytes = 0;
    int bytesOnDisk = 0;
    int lastDone = 0;
    std::vector<dlModule> lastModules;
    int installCount = 0;
    bool autoRun = false;
    bool autoWait = false;
    int errorCount = 0;
    bool idle = true;
    int connectState = 0;
    bool pendingContinue = false;
    int autoDelay = 300;

    // The automatic mode.
    bool autoMode = false;
    coreNameConfig currentConfig{};
    bool currentConfigValid = false;
    std::vector<coreModuleEntry> autoModuleTable;
};
