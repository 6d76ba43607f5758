#include "transfer/DownloadHttp.h"

#include <cstdlib>
#include <cstring>

#include <QFile>
#include <QTimer>

#include "protocol/HostRecords.h"
#include "net/Base64.h"
#include "transfer/DownloadHttpClient.h"
#include "transfer/ResumeAnswer.h"

namespace {

const char kUserAgent[] = "DownloadHttp1.0.0 (1.0.0)";
const char kCopyName[] = "copy.txt";
// Unbuffered, so that a full disk shows at the write that failed, where the
// connection can end the fetch, and not at a close nobody checks.
constexpr QIODevice::OpenMode kBodyOpenMode = QIODevice::WriteOnly | QIODevice::Unbuffered;
// The kept part of a partial file is copied in blocks of this size.
constexpr qint64 kCopyBlock = 64 * 1024;

template <std::size_t N>
QByteArray fieldText(const char (&field)[N])
{
    return QByteArray(field, int(strnlen(field, N)));
}

QString basicCredentials(const QString& login, const QString& password)
{
    const QByteArray plain = (login + QLatin1Char(':') + password).toLocal8Bit();
    char* encoded = nullptr;
    const int length = base64_encode(plain.constData(), unsigned(plain.size()), &encoded);
    const QString text = length >= 0 ? QString::fromLatin1(encoded, length) : QString();
    std::free(encoded);
    return QStringLiteral("Basic ") + text;
}

}  // namespace

CDownloadHttp::CDownloadHttp(IDownloadHttpClient* owner_, QString baseUrl_)
    : owner(owner_), baseUrl(std::move(baseUrl_))
{
    retryTimer = new QTimer(this);
    retryTimer->setSingleShot(true);
    connect(retryTimer, &QTimer::timeout, this, &CDownloadHttp::timerDone);
}

CDownloadHttp::~CDownloadHttp()
{
    delete http;
    delete checkedWriter;
    delete file;
    delete copyFile;
}

// The request URL is baseUrl + name with back-slashes turned round, read with
// the options of the request (a fetch percent-decodes it, the probe does not).
ServerUrl CDownloadHttp::requestTarget(const QString& name, const ServerUrl::Options& options)
{
    QString address = baseUrl + name;
    address.replace(QLatin1String("\\"), QLatin1String("/"));
    const ServerUrl target = ServerUrl::fromText(address, options);
    url = target.text();
    return target;
}

// Each request gets a fresh connection; the superseded one is dropped once
// the event loop is done with it.
void CDownloadHttp::newConnection()
{
    if (http) {
        http->disconnect(this);
        http->abort();
        http->deleteLater();
    }
    http = new CHttpConnection;
    http->setIdleTimeout(idleTimeoutMs);
    connect(http, &CHttpConnection::stateChanged, this, &CDownloadHttp::StateChanged);
    connect(http, &CHttpConnection::requestFinished, this, &CDownloadHttp::RequestFinished);
    connect(http, &CHttpConnection::dataSendProgress, this, &CDownloadHttp::DataSendProgress);
    connect(http, &CHttpConnection::responseHeaderReceived, this,
            &CDownloadHttp::ResponseHeaderReceived);
    connect(http, &CHttpConnection::dataReadProgress, this, &CDownloadHttp::DataReadProgress);
    connect(http, &CHttpConnection::readyRead, this, &CDownloadHttp::ReadyRead);
    connect(http, &CHttpConnection::done, this, &CDownloadHttp::Done);
    connect(http, &CHttpConnection::requestStarted, this, &CDownloadHttp::RequestStarted);
}

QString CDownloadHttp::connectTo(const ServerUrl& target)
{
    mwiProxyState proxy;
    std::memset(&proxy, 0, sizeof proxy);
    owner->getProxyData(proxy);
    const int32_t state = proxy.state;
    if (state != 1) {
        http->setHost(target.hostName(), target.port());
        return QString();
    }
    const int32_t port = proxy.port;
    http->setHost(QString::fromLocal8Bit(fieldText(proxy.host)), quint16(port));
    return basicCredentials(QString::fromLocal8Bit(fieldText(proxy.user)),
                            QString::fromLocal8Bit(fieldText(proxy.password)));
}

void CDownloadHttp::getFileSize(QString name)
{
    if (owner->isOffLine())
        return;
    const ServerUrl target = requestTarget(name, ServerUrl::kSizeProbe);
    ok = true;
    busy = true;
    newConnection();

    CHttpRequestHeader header(QStringLiteral("GET"), target.requestPath(), 1, 1);
    header.setValue(QStringLiteral("User-Agent"), QLatin1String(kUserAgent));
    header.setValue(QStringLiteral("Accept"), QStringLiteral("*/*"));
    // The misspelt name is what this client has always sent; servers ignore it.
    header.setValue(QStringLiteral("Accept-Encodinlg"), QString());
    const QString authorization = connectTo(target);
    header.setValue(QStringLiteral("Range"), QStringLiteral("bytes"));
    header.setValue(QStringLiteral("Referer"), target.folderUrl());
    header.setValue(QStringLiteral("Host"), target.host());
    if (!authorization.isEmpty())
        header.setValue(QStringLiteral("Proxy-Authorization"), authorization);

    sizeProbe = true;
    http->request(header);
}

void CDownloadHttp::checkNextFile(qint64 maxBytes_)
{
    checkNext = true;
    nextMaxBytes = qMax<qint64>(0, maxBytes_);
}

FetchDigest CDownloadHttp::lastFetch() const
{
    FetchDigest result;
    result.bytes = digest.bytes();
    result.overran = checkedWriter && checkedWriter->overran();
    if (checked && !result.overran)
        result.sha256 = digest.hex();
    return result;
}

void CDownloadHttp::getFile(QString const& name, QString const& localDir, int param_, int kind_,
                            int chunkArg_, bool showProgress_)
{
    checked = checkNext;
    maxBytes = nextMaxBytes;
    checkNext = false;
    nextMaxBytes = 0;
    fetch(name, localDir, param_, kind_, chunkArg_, showProgress_);
}

void CDownloadHttp::fetch(QString const& name, QString const& localDir, int param_, int kind_,
                          int chunkArg_, bool showProgress_)
{
    // Copies first: name and localDir may be the retry fields themselves.
    const QString nameCopy = name;
    const QString dirCopy = localDir;
    retryUrl = nameCopy;
    retryDir = dirCopy;
    param = param_;
    kind = kind_;
    chunkArg2 = chunkArg_;
    retryProgress = showProgress_;
    chunkArg = chunkArg_;
    sizeProbe = false;
    busy = true;
    ok = true;
    resumeOffset = 0;
    resumeRefused = false;
    if (owner->isOffLine())
        return;

    const ServerUrl target = requestTarget(nameCopy, ServerUrl::kFileFetch);
    localFile = dirCopy + QLatin1Char('/') + target.fileName();
    newConnection();

    delete checkedWriter;
    checkedWriter = nullptr;
    digest.reset();
    delete file;
    file = nullptr;
    delete copyFile;
    copyFile = nullptr;

    QString range;
    file = new QFile(localFile);
    // A file that cannot be opened (a missing or read-only folder) fails the
    // request as a write error would; returning quietly left the run busy
    // for ever with nothing said.
    if (!file->exists()) {
        if (!file->open(kBodyOpenMode))
            return refuseLocalFile(file->errorString());
    } else if (file->size() <= kDroppedTail) {
        file->remove();
        if (!file->open(kBodyOpenMode))
            return refuseLocalFile(file->errorString());
    } else {
        if (!file->open(QIODevice::ReadOnly))
            return refuseLocalFile(file->errorString());
        copyFile = new QFile(dirCopy + QLatin1Char('/') + QLatin1String(kCopyName));
        if (!copyFile->open(QIODevice::WriteOnly)) {
            file->close();
            return refuseLocalFile(copyFile->errorString());
        }
        // A checked fetch hashes the kept bytes here, as they pass through
        // memory anyway, and never reads the file a second time.
        qint64 keep = file->size() - kDroppedTail;
        QByteArray block(int(kCopyBlock), Qt::Uninitialized);
        while (keep > 0) {
            const qint64 got = file->read(block.data(), qMin(keep, kCopyBlock));
            if (got <= 0 || copyFile->write(block.constData(), got) != got)
                break;
            if (checked)
                digest.add(block.constData(), got);
            keep -= got;
        }
        file->close();
        file->remove();
        copyFile->close();
        QFile::rename(copyFile->fileName(), localFile);
        // Append: a plain write-only open would truncate the kept part, and
        // the fetch would start over instead of resuming.
        if (!file->open(kBodyOpenMode | QIODevice::Append))
            return refuseLocalFile(file->errorString());
        file->flush();
        const qint64 offset = file->size();
        range = QStringLiteral("bytes=%1-").arg(offset);
        resumeOffset = offset;
        owner->addBytesOnDisk(long(offset));
    }

    CHttpRequestHeader header(QStringLiteral("GET"), target.requestPath(), 1, 1);
    header.setValue(QStringLiteral("User-Agent"), QLatin1String(kUserAgent));
    header.setValue(QStringLiteral("Accept"), QStringLiteral("*/*"));
    header.setValue(QStringLiteral("Accept-Encoding"), QString());
    if (!range.isEmpty())
        header.setValue(QStringLiteral("Range"), range);
    header.setValue(QStringLiteral("Referer"), target.folderUrl());
    header.setValue(QStringLiteral("Host"), target.host());
    const QString authorization = connectTo(target);
    if (!authorization.isEmpty())
        header.setValue(QStringLiteral("Proxy-Authorization"), authorization);

    showProgress = showProgress_;
    QIODevice* out = file;
    if (checked) {
        checkedWriter = new CCheckedFileWriter(file, digest, maxBytes);
        out = checkedWriter;
    }
    http->request(header, QByteArray(), out);
}

int CDownloadHttp::abort()
{
    sizeProbe = false;
    resumeRefused = false;
    if (!http)
        return -1;
    http->abort();
    return 0;
}

void CDownloadHttp::StateChanged(int) {}
void CDownloadHttp::RequestFinished(int, bool) {}
void CDownloadHttp::DataSendProgress(int, int) {}
void CDownloadHttp::ReadyRead(const CHttpResponseHeader&) {}
void CDownloadHttp::RequestStarted(int) {}

void CDownloadHttp::ResponseHeaderReceived(const CHttpResponseHeader& header)
{
    if (sizeProbe) {
        // A length that is not a number (or is negative, or too long) reads
        // as 0, like a missing one.
        bool number = false;
        const long length = header.value(QStringLiteral("Content-Length")).trimmed().toLong(&number);
        contentLength = number && length > 0 ? length : 0;
        // Only the header was wanted: the body is never read.
        http->abort();
        return;
    }
    if (header.statusCode() == 404) {
        ok = false;
        return;
    }
    if (resumeOffset > 0 && !acceptResumeAnswer(header))
        http->abort();
}

bool CDownloadHttp::acceptResumeAnswer(const CHttpResponseHeader& header)
{
    switch (classifyResumeAnswer(header.statusCode(), header.value(QStringLiteral("Content-Range")),
                                 resumeOffset)) {
    case ResumeAnswer::Append:
        return true;
    case ResumeAnswer::Restart:
        // The server sends the whole file: it replaces the kept bytes, and the
        // progress no longer counts them.
        if (!file || !file->resize(0))
            break;
        digest.reset();
        owner->addBytesOnDisk(-long(resumeOffset));
        resumeOffset = 0;
        return true;
    case ResumeAnswer::Refuse:
        break;
    }
    resumeRefused = true;
    return false;
}

void CDownloadHttp::DataReadProgress(int done, int)
{
    if (showProgress && owner->hasWindow())
        owner->setProgress(done);
}

void CDownloadHttp::closeFile()
{
    if (file && file->isOpen())
        file->close();
}

void CDownloadHttp::networkError(const char* name, int timeoutMs)
{
    closeFile();
    if (owner->hasWindow())
        owner->showStatusMessage(QStringLiteral("Download: Error ") + QLatin1String(name), timeoutMs);
    retryTimer->start(retryInterval);
}

void CDownloadHttp::Done(bool)
{
    CHttpConnection::Error error = http->error();
    // Once a 404 has arrived the file is not there, whatever becomes of the
    // page that came with it (a bad length, a cut).
    if (!ok && error != CHttpConnection::Aborted)
        error = CHttpConnection::NoError;
    switch (error) {
    case CHttpConnection::NoError:
    // An authentication answer is a complete response like any other: its
    // page is what the owner gets.
    case CHttpConnection::ProxyAuthenticationRequiredError:
    case CHttpConnection::AuthenticationRequiredError: {
        closeFile();
        bool notFound = false;
        if (!ok) {
            ok = true;
            QFile::remove(localFile);
            notFound = true;
        }
        dispatch(notFound);
        ok = true;
        busy = false;
        break;
    }
    // Host not found stays in the status bar until something replaces it.
    case CHttpConnection::HostNotFound:
        networkError("HostNotFound", 0);
        break;
    case CHttpConnection::ConnectionRefused:
        networkError("ConnectionRefused", retryInterval);
        break;
    case CHttpConnection::UnexpectedClose:
        networkError("UnexpectedClose", retryInterval);
        break;
    case CHttpConnection::InvalidResponseHeader:
        networkError("InvalidResponseHeader", retryInterval);
        break;
    case CHttpConnection::WrongContentLength:
        networkError("WrongContentLength", retryInterval);
        break;
    case CHttpConnection::IdleTimeout:
        networkError("IdleTimeout", retryInterval);
        break;
    case CHttpConnection::WriteError:
        writeError(http->errorString());
        break;
    case CHttpConnection::Aborted:
        closeFile();
        if (resumeRefused) {
            // The kept bytes stay; the retry asks for the rest again.
            resumeRefused = false;
            networkError("ResumeRefused", retryInterval);
        } else if (sizeProbe) {
            sizeProbe = false;
            owner->getSizeFile(contentLength);
        }
        break;
    case CHttpConnection::UnknownError:
    default:
        networkError("UnknownError", retryInterval);
        break;
    }
}

// The download folder refused the bytes (a full disk, a file size limit): the
// status bar names the file and the reason. A module fetch counts as failed,
// so the dialog's three-failure rule ends in its error box instead of a
// retry every 20 seconds for ever; a list is retried like a network error.
//
// A checked file that grew past its bound ends the same way, but is deleted
// first: it cannot be the listed file, and resuming it would only fetch the
// excess again.
void CDownloadHttp::writeError(const QString& reason)
{
    closeFile();
    const bool overran = checkedWriter && checkedWriter->overran();
    if (overran)
        QFile::remove(localFile);
    if (owner->hasWindow())
        owner->showStatusMessage(
            overran ? QStringLiteral("Download: Error %1 is %2").arg(localFile, reason)
                    : QStringLiteral("Download: Error writing %1: %2").arg(localFile, reason),
            0);
    if (kind != KindDownloadModule) {
        retryTimer->start(retryInterval);
        return;
    }
    busy = false;
    dispatch(true);
}

// Reported from the event loop, as every other outcome is: the caller of
// getFile must not see its completion before getFile has returned.
void CDownloadHttp::refuseLocalFile(const QString& reason)
{
    QTimer::singleShot(0, this, [this, reason] { writeError(reason); });
}

void CDownloadHttp::dispatch(bool notFound)
{
    switch (kind) {
    case KindParseFileTxt: owner->parseFileTxt(localFile, param); break;
    case KindParseFileTxt1: owner->parseFileTxt1(localFile, param); break;
    case KindParseFileTxt2: owner->parseFileTxt2(localFile, param); break;
    case KindDownloadModule: owner->downloadModule(localFile, notFound); break;
    case KindGetNewModule: owner->getNewModule(localFile); break;
    case KindAutoDownloadConfig: owner->autoDownloadConfig(localFile); break;
    case KindAutoDownloadConfigDescr: owner->autoDownloadConfigDescr(localFile, param); break;
    default: break;
    }
}

// A retry resumes from what is on disk.
void CDownloadHttp::timerDone()
{
    retryTimer->stop();
    fetch(retryUrl, retryDir, param, kind, chunkArg2, retryProgress);
}
