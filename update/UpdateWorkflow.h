#pragma once
// The update workflow without its window: the list chain, the download run,
// the automatic mode and the installation's hand-over, sharing one set of
// settings, one HTTP client, the chosen set and the state file. It shows
// what it does through IUpdateView and asks through IUpdatePrompts, so it
// runs the same with the dialog, with no window, or driven by a test.
// Everything runs on the thread that made it (the GUI thread), driven by the
// HTTP client's completion calls and timers; the hand-over alone runs on a
// worker and comes back here for every host call and state-file change.
#include <functional>
#include <memory>
#include <vector>

#include <QObject>
#include <QString>

#include "platform/HostLink.h"
#include "protocol/HostRecords.h"
#include "protocol/UpdateRecords.h"
#include "transfer/DownloadHttpClient.h"

class CAutoChoice;
class CDownloadHttp;
class CDownloadRun;
class CFileToDl;
class CInstallation;
class CListChain;
class CReleaseCheck;
class CSaveParamDownload;
class IUpdatePrompts;
class IUpdateView;
class QTimer;

class CUpdateWorkflow : public QObject, public IDownloadHttpClient {
    Q_OBJECT
public:
    // What the module and its window give the workflow.
    struct Environment {
        CHostLink link;
        std::function<QString(const char* key)> text;
        std::function<void(mwiProxyState&)> proxyData;
        bool startOffline = false;  // the module was told to stay off-line
        IUpdateView* view = nullptr;
        IUpdatePrompts* prompts = nullptr;
    };
    // How the run stands, shared by its parts.
    struct Mode {
        bool idle = true;      // no manual run going
        bool autoRun = false;  // continuing a stored run
        bool autoWait = false; // the automatic mode is choosing or fetching
        int errorCount = 0;    // failed rounds in a row
        bool pendingContinue = false;  // go on when the host is on-line again
    };

    // Makes no host call: the window asks the host at start in the order
    // the host expects, with its own calls in between (see CDownloadWidget).
    explicit CUpdateWorkflow(Environment environment);
    ~CUpdateWorkflow() override;

    // At start, in this order: whether the host is on-line (a host that does
    // not answer is taken to be), the installed configurations, then the
    // folders and settings, which make the HTTP client and the state file.
    void askConnectState();
    void askInstalledConfigurations();
    void setUpFolders();

    CListChain& lists() { return *lists_; }
    CDownloadRun& run() { return *run_; }
    CAutoChoice& automatic() { return *automatic_; }
    CInstallation& installation() { return *installation_; }
    CReleaseCheck& check() { return *check_; }
    Mode& mode() { return mode_; }
    IUpdateView& view() { return *env_.view; }
    IUpdatePrompts& prompts() { return *env_.prompts; }
    const CHostLink& link() const { return env_.link; }
    QString text(const char* key) const;

    CDownloadHttp& http() { return *http_; }
    CSaveParamDownload& store() { return *store_; }
    CFileToDl& chosen() { return *chosen_; }
    const CFileToDl& chosen() const { return *chosen_; }
    std::vector<coreNameConfig>& installedConfigs() { return installedConfigs_; }
    QTimer* autoStartTimer() const { return timer_; }

    QString downloadFolder() const { return downloadDir_; }
    QString stateFilePath() const;
    QString backupFolder() const;
    QString serverBaseUrl() const { return serverUrl_; }
    QString brokerBaseUrl() const { return serverUrl_ + QStringLiteral("/Broker"); }
    QString settingsFile() const { return configFilePath_; }
    bool settingsFileExisted() const { return configFileExists_; }
    int connectionState() const { return connectState_; }
    int autoDelaySeconds() const { return autoDelay_; }

    void clearDownloadDir();
    // Asks the server only while on-line.
    void DownloadFile(const QString& name, int param, int kind, bool progress);

    // The window's look when it opens: what the workflow is doing.
    void showFirstLook();
    // The window has opened: it starts the automatic choice or a search
    // unless something is already under way.
    void windowOpened();
    void showIdleControls();

    void setStateConnect(int state);
    void startTimer();
    void startTimerIsOutTime();
    // Goes on with the stored run: fetches what it still lacks, installs
    // what it fetched, or starts afresh when nothing is left.
    void continueDownload();
    // Hands the fetched files to the updater, shows the report and looks
    // for updates again.
    void changeModules();
    // After an installation (or a run with nothing to install): the lists
    // are searched again with the window, shown from disk without it.
    void searchAgain(int installationResult);
    // The hand-over itself, on the installation's worker.
    int installationWork(const std::function<void(int, int)>& range,
                         const std::function<void(int)>& value,
                         const std::function<bool()>& stopRequested);

    // IDownloadHttpClient
    bool isOffLine() override;
    void getProxyData(mwiProxyState& state) override;
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
    // Whether the stored run holds fewer records than its count says.
    bool isTornRun(int stored);
    // With signatures required, a fetched list or text is held until its
    // signature has been fetched and checked; deliver then gets the list,
    // or the path of the deleted list when it was refused.
    void afterSignature(const QString& file, const std::function<void(const QString&)>& deliver);

    Environment env_;
    Mode mode_;
    QString downloadDir_;
    QString configFilePath_;
    bool configFileExists_ = true;
    QString serverUrl_;
    int connectState_ = 0;
    int autoDelay_ = 300;
    std::vector<coreNameConfig> installedConfigs_;

    std::unique_ptr<CDownloadHttp> http_;
    std::unique_ptr<CSaveParamDownload> store_;
    std::unique_ptr<CFileToDl> chosen_;
    QTimer* timer_ = nullptr;
    std::unique_ptr<CListChain> lists_;
    std::unique_ptr<CDownloadRun> run_;
    std::unique_ptr<CAutoChoice> automatic_;
    std::unique_ptr<CInstallation> installation_;
    std::unique_ptr<CReleaseCheck> check_;
    // The last list asked for, and the list held for its signature.
    QString requestedName_;
    int requestedParam_ = 0;
    int requestedKind_ = 0;
    bool awaitingSignature_ = false;
    QString heldList_;
    std::function<void(const QString&)> heldDelivery_;
};
