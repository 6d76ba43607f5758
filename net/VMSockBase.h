#pragma once
// The socket base under the tunnel test: one TCP connection, directly or
// through an HTTP proxy's CONNECT tunnel, with a line buffer for the proxy's
// answer. Signals: sgProxyConnect when the proxy opened the tunnel, then
// sgConnectEvent once the destination is reachable; sgErrorEvent on a failure
// (a refused tunnel included); sgDisconnectEvent when the peer closes.
// GUI thread only.
#include <QByteArray>
#include <QObject>
#include <QString>
#include <QTcpSocket>

#include "net/ProxySocket.h"

class CVMSockBase : public QObject {
    Q_OBJECT
public:
    // Proxy type 1: through an HTTP proxy.
    static const int kHttpProxy = 1;
    static const int kConnectWaitMs = 10000;
    // A proxy answer longer than this is not an answer.
    static const int kMaxAnswer = 1024;

    explicit CVMSockBase(QObject* parent = nullptr);
    ~CVMSockBase() override;

    void SetDestination(const QString& host, int port);
    void SetProxy(int type, const QString& host, int port, const QString& login,
                  const QString& password);

    // Starts connecting; the signals tell the outcome.
    void enableSocketNow();
    // Only for proxy type 1: resolves the proxy host and connects to it,
    // waiting up to kConnectWaitMs. 0 when that was done, 1 otherwise.
    int StartTestProxyConnect();

signals:
    void sgConnectEvent();
    void sgDisconnectEvent();
    void sgErrorEvent(int code);
    void sgProxyConnect(void);

private slots:
    void socketConnected();
    void socketReadyRead();
    void socketError(QAbstractSocket::SocketError error);

private:
    QTcpSocket socket;
    CProxySocket proxy;
    int proxyType = 0;
    QString destinationHost;
    int destinationPort = 0;
    QByteArray lineBuffer;
    bool tunnelOpen = false;
    char proxyAddress[100] = {};
};
