#include "transfer/DownloadManager.h"

#include <stdexcept>

#include <QNetworkCookie>
#include <QNetworkCookieJar>
#include <QNetworkProxy>

#include "platform/LogHelper.h"

namespace Download {

namespace {
void logInfo(const QString& text)
{
    LogHelper::ShowLogInfo(logTypeMessage, logLevel3, text);
}
QString quoted(const char* prefix, const QString& value)
{
    return QLatin1String(prefix) + QStringLiteral("(\"") + value + QStringLiteral("\")");
}
}  // namespace

CDownloadManager::CDownloadManager(QObject* parent)
    : QObject(parent), proxy(new QNetworkProxy), cookieJar(new QNetworkCookieJar)
{
}

CDownloadManager::~CDownloadManager()
{
    for (auto& entry : downloads)
        delete entry.second;
    delete proxy;
    delete cookieJar;
}

CDownload* CDownloadManager::find(QString const& url) const
{
    const auto it = downloads.find(url);
    if (it == downloads.end())
        throw std::out_of_range(url.toLatin1().toStdString());
    return it->second;
}

void CDownloadManager::Download(QString const& url, bool useProxy, bool useCookie,
                                RequestBuilderCallback builder)
{
    logInfo(QStringLiteral("CDownloadManager::Download(\"") + url + QStringLiteral("\",\"")
            + QString::number(int(useProxy)) + QStringLiteral("\",\"")
            + QString::number(int(useCookie)) + QStringLiteral("\")"));
    auto it = downloads.find(url);
    if (it == downloads.end()) {
        auto* download = new CDownload(nullptr, url, std::move(builder));
        connect(download, &CDownload::SignalDownloadFinished, this,
                &CDownloadManager::SlotDownloadFinished);
        connect(download, &CDownload::SignalError, this, &CDownloadManager::SlotError);
        it = downloads.emplace(url, download).first;
    }
    if (useProxy)
        it->second->SetProxy(proxy);
    if (useCookie)
        it->second->SetCookie(cookieJar);
    it->second->Download();
}

QByteArray CDownloadManager::GetData(QString const& url) const
{
    return find(url)->GetData();
}

QString CDownloadManager::GetHeaderLocation(QString const& url) const
{
    return find(url)->GetHeaderLocation();
}

QString CDownloadManager::GetCookie(QString const& url) const
{
    find(url);
    QStringList pairs;
    for (const QNetworkCookie& cookie : cookieJar->cookiesForUrl(QUrl(url)))
        pairs << QString::fromLatin1(cookie.name() + '=' + cookie.value());
    return pairs.join(QStringLiteral("; "));
}

void CDownloadManager::SetCookie(QString const& url, QString const& name, QString const& value)
{
    find(url);
    QNetworkCookie cookie(name.toLatin1(), value.toLatin1());
    cookieJar->setCookiesFromUrl({cookie}, QUrl(url));
}

void CDownloadManager::ClearUrl(QString const& url)
{
    CDownload* download = find(url);
    disconnect(download, &CDownload::SignalDownloadFinished, this,
               &CDownloadManager::SlotDownloadFinished);
    disconnect(download, &CDownload::SignalError, this, &CDownloadManager::SlotError);
    download->Abort();
    download->deleteLater();
    downloads.erase(url);
}

void CDownloadManager::AbortAll()
{
    while (!downloads.empty())
        ClearUrl(downloads.begin()->first);
}

void CDownloadManager::SetProxyHost(QString const& host)
{
    logInfo(quoted("CDownloadManager::SetProxyHost", host));
    // A default-constructed proxy means "the application's proxy"; naming a
    // host makes it an HTTP proxy of its own.
    proxy->setType(QNetworkProxy::HttpProxy);
    proxy->setHostName(host);
}

void CDownloadManager::SetProxyPort(unsigned short port)
{
    logInfo(quoted("CDownloadManager::SetProxyPort", QString::number(port)));
    proxy->setPort(port);
}

void CDownloadManager::SetProxyLogin(QString const& login)
{
    logInfo(quoted("CDownloadManager::SetProxyLogin", login));
    proxy->setUser(login);
}

// The password never reaches the log.
void CDownloadManager::SetProxyPassword(QString const& password)
{
    logInfo(QStringLiteral("CDownloadManager::SetProxyPassword(\"HiddenValue\")"));
    proxy->setPassword(password);
}

void CDownloadManager::SlotDownloadFinished(const QString& url)
{
    logInfo(quoted("CDownloadManager::SlotDownloadFinished", url));
    emit SignalDownloadFinished(*this, url);
}

void CDownloadManager::SlotError(QString const& url, QNetworkReply::NetworkError code)
{
    // The backslash before the comma has always been part of this line.
    LogHelper::ShowLogInfo(logTypeError, logLevel1,
                           QStringLiteral("CDownloadManager::SlotError(\"") + url
                               + QStringLiteral("\\, \"") + QString::number(int(code))
                               + QStringLiteral("\")"));
    emit SignalError(*this, url, code);
}

}  // namespace Download
