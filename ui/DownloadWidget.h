#pragma once
// The update dialog: the "Updates" window, its controls and the module's
// boxes, around the workflow (update/UpdateWorkflow.h) that finds the
// offered files, runs the download and hands the result to installation.
// The object lives from the host's "open" command (3066) until the next one
// or the module's end; the window is built on demand (initWindow) and the
// workflow runs with or without it. The workflow sees the window only as
// its view and its prompts; the members below keep the dialog's names and
// pass each call on.
#include <memory>
#include <vector>

#include <QObject>
#include <QString>

#include "protocol/HostRecords.h"
#include "protocol/DialogRecords.h"
#include "update/DlModule.h"
#include "update/UpdatePrompts.h"
#include "update/UpdateView.h"
#include "protocol/UpdateRecords.h"

class ChangeModulesThread;
class CDownloadHttp;
class CFileToDl;
class CUpdateWorkflow;
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

class CDownloadWidget : public QObject, public IUpdateView, public IUpdatePrompts {
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
    void changeState() override;
    void initFrame();
    void pressMenu(mm_menu_item* item);
    bool isSelect() const override;

    // The list chain.
    void getConfigDesc();
    void getModuleDesc();
    void insertDescription(QString file, int, int);

    // The download run.
    bool isOffLine();
    void getProxyData(mwiProxyState& state);
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

    // Completion calls of the HTTP client, passed to the workflow.
    bool hasWindow() const override;
    void showStatusMessage(const QString& text, int timeoutMs);
    void addBytesOnDisk(long bytes);
    void setProgress(int done);
    void getSizeFile(long size);
    void parseFileTxt(QString file, int param);
    void parseFileTxt1(QString file, int param);
    void parseFileTxt2(QString file, int param);
    void downloadModule(QString file, bool notFound);
    void getNewModule(QString file);
    void autoDownloadConfig(QString file);
    void autoDownloadConfigDescr(QString file, int param);

    // Read access for the host's scripted mode and for tests.
    CUpdateWorkflow& workflow() const { return *workflow_; }
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
    CDownloadHttp* http() const;
    const CFileToDl& chosen() const;
    QString serverBaseUrl() const;
    QString brokerBaseUrl() const;
    QString downloadFolder() const;
    bool settingsFileExisted() const;
    int menuIdentifier() const { return menuId; }
    int connectionState() const;
    int autoDelaySeconds() const;
    QTimer* autoStartTimer() const;

    // The workflow's view.
    void setStatus(const QString& message, int timeoutMs = 0) override;
    void setInfo(const QString& text) override;
    void setEnabled(Control control, bool enabled) override;
    void setStartText(const QString& text) override;
    void setBusy(bool busy) override;
    void showProgress(int maximum) override;
    void setProgressMaximum(int maximum) override;
    void setProgressValue(int value) override;
    void resetProgress() override;
    void clearRows() override;
    void addConfigurationRow(const dlModule& configuration, const dlListModule& modules) override;
    void addModuleRow(const dlModule& module, const QString& descriptionFile) override;
    int rowCount() const override;
    std::vector<dlModule> checkedRecords() const override;
    void uncheckAll() override;
    void selectFirstRow() override;
    void clearDescription() override;

    // The workflow's prompts.
    void information(const QString& title, const QString& text) override;
    void critical(const QString& title, const QString& text) override;
    int question(const QString& title, const QString& text) override;
    int runInstallation(bool& cancelled) override;
    void showReport(const std::vector<dlModule>& installed, const QStringList& refused) override;

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
    void askHostForWindow();
    void buildControls();
    void windowClosed();
    QString text(const char* key) const;
    QWidget* messageParent() const;

    std::unique_ptr<CUpdateWorkflow> workflow_;
    Download::CDownloadManager* downloadManager = nullptr;
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
};
