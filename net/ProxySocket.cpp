#include "net/ProxySocket.h"

#include <cstdlib>
#include <cstring>

#include <QTextCodec>

#include "net/Base64.h"

void CProxySocket::SetDataProxy(QString host, int port, QString login, QString password)
{
    proxyHost = std::move(host);
    proxyPort = port;
    proxyLogin = std::move(login);
    proxyPassword = std::move(password);
    sendCredentials = !proxyLogin.isEmpty() || !proxyPassword.isEmpty();
}

void CProxySocket::CreateConnectStr(QString& out, QString& host, int port)
{
    const QByteArray target = host.toLatin1() + ':' + QByteArray::number(port);
    if (!sendCredentials) {
        out = QString::fromLatin1("CONNECT " + target + " HTTP/1.0\r\n\r\n");
        return;
    }
    // The proxies this talks to expect Cyrillic credentials in CP1251.
    const QString plain = proxyLogin + QLatin1Char(':') + proxyPassword;
    QTextCodec* codec = QTextCodec::codecForName("CP1251");
    const QByteArray bytes = codec ? codec->fromUnicode(plain) : plain.toLocal8Bit();
    char* encoded = nullptr;
    const int length = base64_encode(bytes.constData(), unsigned(bytes.size()), &encoded);
    const QByteArray credentials = length >= 0 ? QByteArray(encoded, length) : QByteArray();
    std::free(encoded);
    out = QString::fromLatin1("CONNECT " + target + " HTTP/1.0\r\nProxy-Authorization: Basic "
                              + credentials + "\r\n\r\n");
}

int CProxySocket::GetAnswerServer(char const* text, int length)
{
    char buffer[1024];
    const int n = qBound(0, length, int(sizeof buffer) - 1);
    std::memcpy(buffer, text, size_t(n));
    buffer[n] = '\0';
    char* save = nullptr;
    const char* first = strtok_r(buffer, " ", &save);
    const char* second = first ? strtok_r(nullptr, " ", &save) : nullptr;
    if (!second)
        return 1;
    return std::strtol(second, nullptr, 10) == 200 ? 0 : 1;
}
