#pragma once
// Small in-memory downloads by URL, one CDownload per URL. Callers start a
// download, wait for SignalDownloadFinished and read the bytes with GetData.
// Unknown URLs throw std::out_of_range with the URL as text. GUI thread only.
#include <map>

#include <QNetworkReply>
#include <QObject>
#include <QString>

#include "transfer/Download.h"

class QNetworkCookieJar;
class QNetworkProxy;

namespace Download {

class CDownloadManager : public QObject {
    Q_OBJECT
public:
    explicit CDownloadManager(QObject* parent = nullptr);
    ~CDownloadManager() override;

    // A second call for a URL restarts its download; the builder given then
    // is not used.
    void Download(QString const& url, bool useProxy, bool useCookie,
                  RequestBuilderCallback builder = nullptr);
    QByteArray GetData(QString const& url) const;
    QString GetHeaderLocation(QString const& url) const;
    // The jar's cookies for the URL as "name=value; name=value".
    QString GetCookie(QString const& url) const;
    void SetCookie(QString const& url, QString const& name, QString const& value);
    void ClearUrl(QString const& url);
    void AbortAll();

    void SetProxyHost(QString const& host);
    void SetProxyPort(unsigned short port);
    void SetProxyLogin(QString const& login);
    void SetProxyPassword(QString const& password);

signals:
    void SignalDownloadFinished(CDownloadManager const& manager, QString const& url);
    void SignalError(CDownloadManager const& manager, QString const& url,
                     QNetworkReply::NetworkError code);

public slots:
    void SlotDownloadFinished(const QString& url);
    void SlotError(QString const& url, QNetworkReply::NetworkError code);

private:
    CDownload* find(QString const& url) const;

    std::map<QString, CDownload*> downloads;
    QNetworkProxy* proxy;
    QNetworkCookieJar* cookieJar;
};

}  // namespace Download
