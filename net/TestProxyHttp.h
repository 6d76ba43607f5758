#pragma once
// The HTTP proxy test: a HEAD request for the target sent through the proxy
// with Basic credentials. doTest() blocks its caller, pumping the event loop,
// until the proxy answered or timeoutSeconds have passed. GUI thread only.
#include <QObject>
#include <QString>
#include <QTcpSocket>

class CTestProxyHttp : public QObject {
    Q_OBJECT
public:
    // The target port is not used: the request names the target by its URL.
    CTestProxyHttp(int timeoutSeconds, char const* targetHost, int targetPort,
                   char const* proxyHost, int proxyPort, char const* login, char const* password);
    ~CTestProxyHttp() override;

    // True when the proxy passed the request on (status 200, 302 or 403).
    bool doTest();
    QString requestText() const { return request; }

private slots:
    void connectedSocket();
    void connectionClosedSocket();
    void readyReadSocket();
    void bytesWrittenSocket(qint64 bytes);
    void errorSocket(QAbstractSocket::SocketError error);

private:
    bool done = false;
    bool result = false;
    int timeout;
    QString request;
    QString proxyHost;
    int proxyPort;
    QTcpSocket* socket;
};
