#pragma once
// One in-memory download over QNetworkAccessManager. A failed attempt is
// retried every m_TimerTimeout milliseconds without limit; the finished
// signal is sent once per start. GUI thread only.
#include <functional>

#include <QByteArray>
#include <QMutex>
#include <QNetworkReply>
#include <QObject>
#include <QString>

#include "transfer/DownloadRequestBuilder.h"

class QNetworkAccessManager;
class QNetworkCookieJar;
class QNetworkProxy;
class QTimer;

namespace Download {

using RequestBuilderCallback = std::function<void(CDownloadRequestBuilder&)>;

class CDownload : public QObject {
    Q_OBJECT
public:
    static const int m_TimerTimeout = 1000;

    CDownload(QObject* parent, QString const& url, RequestBuilderCallback builder);
    ~CDownload() override;

    void Download();
    void Abort();
    bool IsLoad() const { return finished; }
    QByteArray GetData() const { return data; }
    QString GetHeaderLocation() const;
    void SetProxy(QNetworkProxy const* proxy);
    void SetCookie(QNetworkCookieJar* jar);

public slots:
    void SlotDownload();
    void SlotDownloadProgress(qint64 bytesReceived, qint64 bytesTotal);
    void SlotError(QNetworkReply::NetworkError code);
    void SlotFinished();

signals:
    void SignalDownloadFinished(const QString& url);
    void SignalError(QString const& url, QNetworkReply::NetworkError code);

private:
    void DownloadFinished();
    void dropReply();

    QByteArray data;
    QString m_URL;
    QNetworkAccessManager* manager;
    QNetworkReply* reply = nullptr;
    qint64 total = -2;
    qint64 received = 0;
    qint64 offset = 0;
    QTimer* retryTimer;
    bool finished = false;
    RequestBuilderCallback builder;
    QMutex mutex;
};

}  // namespace Download
