#pragma once
// The proxy side of a socket: the credentials it sends and the CONNECT request
// and answer of an HTTP tunnel (RFC 7231, section 4.3.6).
#include <QString>

class CProxySocket {
public:
    void SetDataProxy(QString host, int port, QString login, QString password);

    // "CONNECT host:port HTTP/1.0", with Basic credentials when a login or
    // password is set.
    void CreateConnectStr(QString& out, QString& host, int port);
    // 0 when the proxy's answer carries status 200 as its second word,
    // otherwise 1 (also for an answer of fewer than two words).
    static int GetAnswerServer(char const* text, int length);

    QString host() const { return proxyHost; }
    int port() const { return proxyPort; }

private:
    QString proxyHost;
    int proxyPort = 0;
    QString proxyLogin;
    QString proxyPassword;
    bool sendCredentials = false;
};
