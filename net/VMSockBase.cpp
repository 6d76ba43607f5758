#include "net/VMSockBase.h"

#include <cstring>

#include <QHostInfo>

CVMSockBase::CVMSockBase(QObject* parent) : QObject(parent)
{
    connect(&socket, &QTcpSocket::connected, this, &CVMSockBase::socketConnected);
    connect(&socket, &QTcpSocket::readyRead, this, &CVMSockBase::socketReadyRead);
    connect(&socket, &QTcpSocket::disconnected, this, &CVMSockBase::sgDisconnectEvent);
    connect(&socket, &QAbstractSocket::errorOccurred, this, &CVMSockBase::socketError);
}

// The socket outlives the derived test object: closing it must not signal
// into what is left of it.
CVMSockBase::~CVMSockBase()
{
    socket.disconnect(this);
    socket.abort();
}

void CVMSockBase::SetDestination(const QString& host, int port)
{
    destinationHost = host;
    destinationPort = port;
}

void CVMSockBase::SetProxy(int type, const QString& host, int port, const QString& login,
                           const QString& password)
{
    proxyType = type;
    proxy.SetDataProxy(host, port, login, password);
}

void CVMSockBase::enableSocketNow()
{
    lineBuffer.clear();
    tunnelOpen = false;
    socket.abort();
    if (proxyType != kHttpProxy) {
        socket.connectToHost(destinationHost, quint16(destinationPort));
        return;
    }
    if (StartTestProxyConnect() != 0)
        emit sgErrorEvent(int(QAbstractSocket::HostNotFoundError));
}

int CVMSockBase::StartTestProxyConnect()
{
    if (proxyType != kHttpProxy)
        return 1;
    const QHostInfo info = QHostInfo::fromName(proxy.host());
    if (info.error() != QHostInfo::NoError || info.addresses().isEmpty())
        return 1;
    const QByteArray address = info.addresses().first().toString().toLatin1();
    std::memset(proxyAddress, 0, sizeof proxyAddress);
    std::memcpy(proxyAddress, address.constData(), size_t(qMin(address.size(), 99)));
    socket.connectToHost(QString::fromLatin1(proxyAddress), quint16(proxy.port()));
    socket.waitForConnected(kConnectWaitMs);
    return 0;
}

void CVMSockBase::socketConnected()
{
    if (proxyType != kHttpProxy) {
        emit sgConnectEvent();
        return;
    }
    QString request;
    proxy.CreateConnectStr(request, destinationHost, destinationPort);
    socket.write(request.toLatin1());
}

void CVMSockBase::socketReadyRead()
{
    if (proxyType != kHttpProxy || tunnelOpen) {
        socket.readAll();
        return;
    }
    lineBuffer += socket.read(kMaxAnswer + 1 - lineBuffer.size());
    const int end = lineBuffer.indexOf("\r\n\r\n");
    if (end < 0) {
        if (lineBuffer.size() > kMaxAnswer) {
            // The error first: aborting reports a disconnection too.
            emit sgErrorEvent(int(QAbstractSocket::ProxyProtocolError));
            socket.abort();
        }
        return;
    }
    const QByteArray statusLine = lineBuffer.left(lineBuffer.indexOf("\r\n"));
    if (CProxySocket::GetAnswerServer(statusLine.constData(), statusLine.size()) != 0) {
        emit sgErrorEvent(int(QAbstractSocket::ProxyConnectionRefusedError));
        socket.abort();
        return;
    }
    tunnelOpen = true;
    emit sgProxyConnect();
    emit sgConnectEvent();
}

void CVMSockBase::socketError(QAbstractSocket::SocketError error)
{
    // A close by the peer is reported as a disconnection.
    if (error == QAbstractSocket::RemoteHostClosedError)
        return;
    emit sgErrorEvent(int(error));
}
