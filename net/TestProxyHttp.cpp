#include "net/TestProxyHttp.h"

#include <cstdlib>

#include <QCoreApplication>
#include <QDateTime>
#include <QTimer>
#include <QUrl>

#include "net/Base64.h"

CTestProxyHttp::CTestProxyHttp(int timeoutSeconds, char const* targetHost, int,
                               char const* proxyHost_, int proxyPort_, char const* login,
                               char const* password)
    : timeout(timeoutSeconds), proxyHost(QString::fromLocal8Bit(proxyHost_)), proxyPort(proxyPort_),
      socket(new QTcpSocket(this))
{
    // A bare "host/path" is an http URL here (Qt 4 parsed it as a file URL,
    // Qt 5 without a scheme).
    QUrl url(QString::fromLocal8Bit(targetHost));
    if (url.scheme() == QLatin1String("file") || url.scheme().isEmpty())
        url = QUrl(QStringLiteral("http://") + QString::fromLocal8Bit(targetHost));
    QString host = url.host();
    if (url.port() > 0)
        host += QLatin1Char(':') + QString::number(url.port());

    const QByteArray plain = (QString::fromLocal8Bit(login) + QLatin1Char(':')
                              + QString::fromLocal8Bit(password)).toLocal8Bit();
    char* encoded = nullptr;
    const int length = base64_encode(plain.constData(), unsigned(plain.size()), &encoded);
    const QString credentials = length >= 0 ? QString::fromLatin1(encoded, length) : QString();
    std::free(encoded);

    // Credentials go out even when empty; there is no path after the host.
    request = QStringLiteral("HEAD http://") + host + QStringLiteral(" HTTP/1.0\r\nProxy-Authorization: ")
        + QStringLiteral("Basic ") + credentials + QStringLiteral("\r\n\r\n");

    connect(socket, &QTcpSocket::connected, this, &CTestProxyHttp::connectedSocket);
    connect(socket, &QTcpSocket::disconnected, this, &CTestProxyHttp::connectionClosedSocket);
    connect(socket, &QTcpSocket::readyRead, this, &CTestProxyHttp::readyReadSocket);
    connect(socket, &QTcpSocket::bytesWritten, this, &CTestProxyHttp::bytesWrittenSocket);
    connect(socket, &QAbstractSocket::errorOccurred, this, &CTestProxyHttp::errorSocket);
}

// The socket is a child and is deleted after this object's own part: it must
// not signal into it.
CTestProxyHttp::~CTestProxyHttp()
{
    socket->disconnect(this);
}

bool CTestProxyHttp::doTest()
{
    const qint64 start = QDateTime::currentSecsSinceEpoch();
    done = false;
    result = false;
    socket->connectToHost(proxyHost, quint16(proxyPort), QIODevice::ReadWrite);
    // The tick wakes the loop at least every 100 ms to look at the clock.
    QTimer tick;
    tick.start(100);
    while (!done && QDateTime::currentSecsSinceEpoch() < start + timeout)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    socket->abort();
    return result;
}

void CTestProxyHttp::connectedSocket()
{
    socket->write(request.toLatin1());
}

void CTestProxyHttp::connectionClosedSocket()
{
    if (!done)
        readyReadSocket();
    done = true;
}

void CTestProxyHttp::bytesWrittenSocket(qint64 bytes)
{
    if (bytes != request.size()) {
        socket->close();
        done = true;
    }
}

void CTestProxyHttp::errorSocket(QAbstractSocket::SocketError error)
{
    // A proxy that answers and closes is judged by its answer.
    if (error == QAbstractSocket::RemoteHostClosedError && !done) {
        readyReadSocket();
        if (done)
            return;
    }
    socket->close();
    done = true;
}

void CTestProxyHttp::readyReadSocket()
{
    while (socket->canReadLine()) {
        const QByteArray line = socket->readLine();
        if (!line.startsWith("HTTP/1."))
            continue;
        const int status = line.mid(9, 3).toInt();
        // A 403 still shows that the proxy passed the request on.
        result = status == 200 || status == 302 || status == 403;
        done = true;
        return;
    }
    // What arrived held no status line: the proxy did not answer as one.
    done = true;
}
