#include "transfer/HttpConnection.h"

#include <cerrno>

#include <QIODevice>
#include <QTcpSocket>
#include <QTimer>

namespace {
// Read in slices, so that a fast sender never makes one large buffer here.
constexpr qint64 kReadSlice = 64 * 1024;

int clampToInt(qint64 value)
{
    return value > 0x7fffffff ? 0x7fffffff : int(value);
}
}  // namespace

CHttpConnection::CHttpConnection(QObject* parent) : QObject(parent), idleTimer_(new QTimer(this))
{
    qRegisterMetaType<CHttpResponseHeader>();
    idleTimer_->setSingleShot(true);
    connect(idleTimer_, &QTimer::timeout, this, [this] {
        finish(IdleTimeout, QStringLiteral("Nothing received from %1:%2 for %3 s")
                                .arg(host_).arg(port_).arg(idleTimeoutMs_ / 1000.0));
    });
}

// Any sign of life starts the idle time again.
void CHttpConnection::stillAlive()
{
    if (running_ && idleTimeoutMs_ > 0)
        idleTimer_->start(idleTimeoutMs_);
}

CHttpConnection::~CHttpConnection()
{
    if (socket_) {
        socket_->disconnect(this);
        socket_->abort();
    }
}

int CHttpConnection::setHost(const QString& host, quint16 port)
{
    host_ = host;
    port_ = port;
    return nextId_++;
}

int CHttpConnection::request(const CHttpRequestHeader& header, const QByteArray& body,
                             QIODevice* out)
{
    header_ = header;
    outgoing_ = header.toByteArray() + body;
    out_ = out;
    currentId_ = nextId_++;
    parser_ = CHttpResponseParser(header.method().compare(QLatin1String("HEAD"),
                                                          Qt::CaseInsensitive) == 0);
    buffered_.clear();
    error_ = NoError;
    errorString_.clear();
    running_ = true;
    aborting_ = false;
    QTimer::singleShot(0, this, &CHttpConnection::start);
    return currentId_;
}

void CHttpConnection::start()
{
    if (!running_ || aborting_)
        return;
    emit requestStarted(currentId_);
    if (!running_ || aborting_)
        return;
    if (socket_) {
        socket_->disconnect(this);
        socket_->abort();
        socket_->deleteLater();
    }
    socket_ = new QTcpSocket(this);
    connect(socket_, &QTcpSocket::connected, this, &CHttpConnection::socketConnected);
    connect(socket_, &QTcpSocket::bytesWritten, this, &CHttpConnection::socketBytesWritten);
    connect(socket_, &QTcpSocket::readyRead, this, &CHttpConnection::socketReadyRead);
    connect(socket_, &QTcpSocket::disconnected, this, &CHttpConnection::socketClosed);
    connect(socket_, &QAbstractSocket::errorOccurred, this, &CHttpConnection::socketError);
    sent_ = 0;
    setState(HostLookup);
    stillAlive();
    socket_->connectToHost(host_, port_);
    if (running_ && socket_->state() == QAbstractSocket::ConnectingState)
        setState(Connecting);
}

void CHttpConnection::socketConnected()
{
    stillAlive();
    // Keep-alive probes let the kernel notice a peer that vanished while the
    // server is slow to answer; the idle timer covers the rest.
    socket_->setSocketOption(QAbstractSocket::KeepAliveOption, 1);
    setState(Sending);
    socket_->write(outgoing_);
}

void CHttpConnection::socketBytesWritten(qint64 bytes)
{
    if (!running_)
        return;
    sent_ += bytes;
    stillAlive();
    emit dataSendProgress(clampToInt(sent_), clampToInt(outgoing_.size()));
    if (running_ && sent_ >= outgoing_.size() && state_ == Sending)
        setState(Reading);
}

void CHttpConnection::socketReadyRead()
{
    char slice[kReadSlice];
    while (running_ && !aborting_ && socket_ && socket_->bytesAvailable() > 0) {
        const qint64 got = socket_->read(slice, kReadSlice);
        if (got <= 0)
            break;
        stillAlive();
        if (state_ == Sending)
            setState(Reading);
        const CHttpResponseParser::Result result = parser_.feed(slice, got, *this);
        if (result == CHttpResponseParser::Failed) {
            finish(Error(parser_.error()), parser_.errorString());
            return;
        }
        if (result == CHttpResponseParser::Complete) {
            const int status = parser_.header().statusCode();
            if (status == 407)
                finish(ProxyAuthenticationRequiredError,
                       QStringLiteral("Proxy authentication required"));
            else if (status == 401)
                finish(AuthenticationRequiredError, QStringLiteral("Authentication required"));
            else
                finish(NoError, QString());
            return;
        }
    }
}

void CHttpConnection::socketClosed()
{
    if (!running_ || aborting_)
        return;
    socketReadyRead();
    if (!running_)
        return;
    if (parser_.finishAtClose() == CHttpResponseParser::Complete)
        finish(NoError, QString());
    else
        finish(Error(parser_.error()), parser_.errorString());
}

void CHttpConnection::socketError()
{
    if (!running_ || aborting_ || !socket_)
        return;
    switch (socket_->error()) {
    case QAbstractSocket::RemoteHostClosedError:
        socketClosed();
        break;
    case QAbstractSocket::HostNotFoundError:
        finish(HostNotFound, QStringLiteral("Host %1 not found").arg(host_));
        break;
    case QAbstractSocket::ConnectionRefusedError:
        finish(ConnectionRefused, QStringLiteral("Connection refused by %1:%2").arg(host_).arg(port_));
        break;
    default:
        finish(UnknownError, socket_->errorString());
        break;
    }
}

bool CHttpConnection::onResponseHeader(const CHttpResponseHeader& header)
{
    emit responseHeaderReceived(header);
    return running_ && !aborting_;
}

bool CHttpConnection::onBodyData(const char* data, qint64 size)
{
    if (out_) {
        errno = 0;
        if (out_->write(data, size) != size) {
            // The system's reason: a file's own error text is often only
            // "Unknown error".
            const int reason = errno;
            finish(WriteError, reason ? qt_error_string(reason) : out_->errorString());
            return false;
        }
    } else {
        buffered_.append(data, int(size));
        emit readyRead(parser_.header());
    }
    if (!running_ || aborting_)
        return false;
    const qint64 total = parser_.expectedLength();
    emit dataReadProgress(clampToInt(parser_.bodyBytes()), total < 0 ? 0 : clampToInt(total));
    return running_ && !aborting_;
}

QByteArray CHttpConnection::readAll()
{
    QByteArray data;
    data.swap(buffered_);
    return data;
}

void CHttpConnection::abort()
{
    if (!running_ || aborting_)
        return;
    aborting_ = true;
    idleTimer_->stop();
    if (socket_) {
        socket_->disconnect(this);
        socket_->abort();
    }
    // Reported from the event loop: abort() is often called from a slot of
    // this object's own signals, which must not see done() under them.
    QTimer::singleShot(0, this, [this] { finish(Aborted, QStringLiteral("Request aborted")); });
}

void CHttpConnection::setState(State state)
{
    if (state_ == state)
        return;
    state_ = state;
    emit stateChanged(int(state));
}

void CHttpConnection::finish(Error error, const QString& text)
{
    if (!running_)
        return;
    running_ = false;
    idleTimer_->stop();
    error_ = error;
    errorString_ = text;
    if (socket_) {
        socket_->disconnect(this);
        socket_->abort();
    }
    setState(Unconnected);
    emit requestFinished(currentId_, error != NoError);
    emit done(error != NoError);
}
