#pragma once
// The HTTP file client of the update dialog: a size probe that learns a
// remote file's length without reading its body, and a file fetch that
// resumes a partial file already on disk. Requests go through the host's proxy
// when the host says so; network errors are retried every retryInterval
// milliseconds without limit. One request at a time; GUI thread only.
#include <QObject>
#include <QString>

#include "net/ServerUrl.h"
#include "transfer/FileDigest.h"
#include "transfer/HttpConnection.h"

class QFile;
class QTimer;
class IDownloadHttpClient;

class CDownloadHttp : public QObject {
    Q_OBJECT
public:
    // Request kinds: which completion call of the owner a fetch ends in.
    enum Kind {
        KindParseFileTxt = 0,
        KindParseFileTxt1 = 1,
        KindParseFileTxt2 = 2,
        KindDownloadModule = 3,
        KindGetNewModule = 4,
        KindAutoDownloadConfig = 5,
        KindAutoDownloadConfigDescr = 6,
    };
    static constexpr int kRetryInterval = 20000;
    // A partial file's last bytes are never trusted: they may be torn.
    static constexpr qint64 kDroppedTail = 256;
    // A connection on which nothing moves this long is given up as broken
    // and retried; download.cfg's [Network] IdleTimeout overrides it.
    static constexpr int kDefaultIdleTimeoutSeconds = 60;

    CDownloadHttp(IDownloadHttpClient* owner, QString baseUrl);
    ~CDownloadHttp() override;

    // Both return before the request ends.
    void getFileSize(QString name);
    void getFile(QString const& name, QString const& localDir, int param, int kind, int chunkArg,
                 bool showProgress);
    // The next getFile, and its retries, hashes the file as it is written
    // (lastFetch) and, with maxBytes > 0, cuts it off beyond maxBytes: the
    // file is deleted and the fetch fails like one the disk refused. The
    // getFile after that one is unchecked again unless asked.
    void checkNextFile(qint64 maxBytes);
    // The checked fetch's outcome, good from its completion call until the
    // next getFile; an unchecked fetch gives an empty sha256.
    FetchDigest lastFetch() const;
    // -1 when no request was ever made; otherwise ends the current one quietly.
    int abort();

    bool isBusy() const { return busy; }
    int retryIntervalMs() const { return retryInterval; }
    // Tests shorten the pause before a retry; the product keeps kRetryInterval.
    void setRetryIntervalForTest(int ms) { retryInterval = ms; }
    // For the requests that follow; milliseconds, 0 for no limit.
    void setIdleTimeout(int ms) { idleTimeoutMs = ms; }
    QString currentUrl() const { return url; }
    QString currentLocalFile() const { return localFile; }

public slots:
    void StateChanged(int state);
    void RequestFinished(int id, bool error);
    void DataSendProgress(int done, int total);
    void ResponseHeaderReceived(const CHttpResponseHeader& header);
    void DataReadProgress(int done, int total);
    void ReadyRead(const CHttpResponseHeader& header);
    void Done(bool error);
    void RequestStarted(int id);
    void timerDone();

private:
    ServerUrl requestTarget(const QString& name, const ServerUrl::Options& options);
    void newConnection();
    // Points the connection at the proxy or the server; returns the
    // Proxy-Authorization value, empty without a proxy.
    QString connectTo(const ServerUrl& target);
    bool openTarget(CHttpRequestHeader& header);
    void fetch(QString const& name, QString const& localDir, int param, int kind, int chunkArg,
               bool showProgress);
    void closeFile();
    void dispatch(bool notFound);
    void networkError(const char* name, int timeoutMs);
    void writeError(const QString& reason);
    void refuseLocalFile(const QString& reason);
    // False when the answer to a resuming request must not reach the file.
    bool acceptResumeAnswer(const CHttpResponseHeader& header);

    IDownloadHttpClient* owner;
    CHttpConnection* http = nullptr;
    QFile* file = nullptr;
    QFile* copyFile = nullptr;
    // Between the file and the connection while a checked fetch runs.
    CCheckedFileWriter* checkedWriter = nullptr;
    CFileDigest digest;
    bool checkNext = false;
    qint64 nextMaxBytes = 0;
    bool checked = false;
    qint64 maxBytes = 0;
    QString url;
    int chunkArg = 0;
    bool ok = true;
    bool sizeProbe = false;
    QString localFile;
    bool showProgress = false;
    long contentLength = 0;
    qint64 resumeOffset = 0;     // the kept bytes a ranged request continues; 0: none
    bool resumeRefused = false;  // the abort in progress is a refused resume
    QString baseUrl;
    bool busy = false;
    QTimer* retryTimer = nullptr;
    int retryInterval = kRetryInterval;
    int idleTimeoutMs = kDefaultIdleTimeoutSeconds * 1000;
    QString retryUrl;
    QString retryDir;
    int param = 0;
    int kind = -1;
    int chunkArg2 = 0;
    bool retryProgress = false;
};
