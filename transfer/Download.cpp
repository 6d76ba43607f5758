#include "transfer/Download.h"

#include <QMutexLocker>
#include <QNetworkAccessManager>
#include <QNetworkCookieJar>
#include <QNetworkProxy>
#include <QNetworkRequest>
#include <QTimer>

#include "platform/LogHelper.h"

namespace Download {

namespace {
void logInfo(const QString& text)
{
    LogHelper::ShowLogInfo(logTypeMessage, logLevel3, text);
}
}  // namespace

CDownload::CDownload(QObject* parent, QString const& url, RequestBuilderCallback builder_)
    : QObject(parent), m_URL(url), manager(new QNetworkAccessManager), retryTimer(new QTimer),
      builder(std::move(builder_))
{
    retryTimer->setSingleShot(true);
}

CDownload::~CDownload()
{
    dropReply();
    delete retryTimer;
    delete manager;
}

void CDownload::dropReply()
{
    if (!reply)
        return;
    reply->disconnect(this);
    reply->abort();
    reply->deleteLater();
    reply = nullptr;
}

void CDownload::Download()
{
    logInfo(QStringLiteral("CDownload::Download()"));
    finished = false;
    retryTimer->stop();
    // A finished download let go of its timer; a restart takes it back.
    connect(retryTimer, &QTimer::timeout, this, &CDownload::SlotDownload, Qt::UniqueConnection);
    dropReply();

    QNetworkRequest request{QUrl(m_URL)};
    if (received > 0) {
        // The continuation asks with the low bytes of the two counts, as the
        // servers of this product expect it.
        offset = received;
        QByteArray range;
        range.append(char(received & 0xff));
        range.append('-');
        range.append(char(total & 0xff));
        request.setRawHeader("Range", range);
    } else {
        offset = 0;
    }
    if (builder) {
        CDownloadRequestBuilder headers(m_URL);
        builder(headers);
        for (auto it = headers.HeaderBegin(); it != headers.HeaderEnd(); ++it)
            request.setRawHeader(it->first.toLatin1(), it->second.toLatin1());
    }
    reply = manager->get(request);
    connect(reply, &QNetworkReply::downloadProgress, this, &CDownload::SlotDownloadProgress);
    connect(reply, &QNetworkReply::errorOccurred, this, &CDownload::SlotError);
    connect(reply, &QNetworkReply::finished, this, &CDownload::SlotFinished);
}

void CDownload::SlotDownload()
{
    Download();
}

void CDownload::Abort()
{
    retryTimer->stop();
    dropReply();
}

QString CDownload::GetHeaderLocation() const
{
    if (!reply)
        return QString();
    const QVariant target = reply->attribute(QNetworkRequest::RedirectionTargetAttribute);
    if (target.isValid())
        return target.toUrl().toString();
    return QString::fromLatin1(reply->rawHeader("Location"));
}

void CDownload::SetProxy(QNetworkProxy const* proxy)
{
    if (proxy)
        manager->setProxy(*proxy);
}

// The jar belongs to the download manager and is shared by its downloads:
// QNetworkAccessManager would adopt it, so it is handed back at once.
void CDownload::SetCookie(QNetworkCookieJar* jar)
{
    if (!jar)
        return;
    QObject* owner = jar->parent();
    manager->setCookieJar(jar);
    jar->setParent(owner);
}

void CDownload::SlotDownloadProgress(qint64 bytesReceived, qint64 bytesTotal)
{
    if (total == -2)
        total = bytesTotal;
    if (bytesReceived > 0 && reply)
        data.append(reply->read(bytesReceived + offset - received));
    received = bytesReceived;
}

void CDownload::SlotError(QNetworkReply::NetworkError code)
{
    LogHelper::ShowLogInfo(logTypeError, logLevel1,
                           QStringLiteral("CDownload::SlotError(") + QString::number(int(code))
                               + QLatin1Char(')'));
    emit SignalError(m_URL, code);
    retryTimer->start(m_TimerTimeout);
}

void CDownload::SlotFinished()
{
    logInfo(QStringLiteral("CDownload::SlotFinished()"));
    logInfo(QStringLiteral("CDownload::SlotFinished url: ") + GetHeaderLocation());
    DownloadFinished();
}

void CDownload::DownloadFinished()
{
    logInfo(QStringLiteral("CDownload::DownloadFinished()"));
    logInfo(QStringLiteral("CDownload::DownloadFinished HeaderUrl: ") + GetHeaderLocation());
    logInfo(QStringLiteral("CDownload::DownloadFinished m_URL: ") + m_URL);
    if (finished || !reply || reply->error() != QNetworkReply::NoError)
        return;
    {
        QMutexLocker lock(&mutex);
        if (finished)
            return;
        finished = true;
    }
    reply->disconnect(this);
    retryTimer->disconnect(this);
    emit SignalDownloadFinished(m_URL);
}

}  // namespace Download
