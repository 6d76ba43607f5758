// The proxy tests the host asks for: the HTTP test's request and its verdict
// on each status, the CONNECT tunnel test, both through tinyproxy, and the
// module's answer to 3517.
#include <cstring>

#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTextCodec>
#include <gtest/gtest.h>

#include "protocol/HostMessages.h"
#include "net/ProxySocket.h"
#include "net/TestProxyHttp.h"
#include "net/TestSocketProxyConnect.h"
#include "support/FaultServer.h"
#include "support/FileHelpers.h"
#include "support/RealServers.h"
#include "tests/support/TestHost.h"

TEST(ProxyHttpTest, RequestNamesTheHostOnlyAndAlwaysCarriesCredentials)
{
    // A server with a path and credentials: see the 3517 test below.
    CTestProxyHttp empty(1, "http://example.invalid/a/b?c", 80, "127.0.0.1", 1, "", "");
    EXPECT_EQ(QStringLiteral("HEAD http://example.invalid HTTP/1.0\r\n"
                             "Proxy-Authorization: Basic Og==\r\n\r\n"),
              empty.requestText());
}

struct StatusCase {
    int status;
    bool passes;
};

class ProxyHttpStatus : public ::testing::TestWithParam<StatusCase> {};

TEST_P(ProxyHttpStatus, PassesOnlyFor200302And403)
{
    FaultServer proxy({okReply("", GetParam().status)});
    CTestProxyHttp test(30, "target.invalid", 80, "127.0.0.1", proxy.port(), "u", "p");
    EXPECT_EQ(GetParam().passes, test.doTest());
    ASSERT_EQ(1, proxy.requests.size());
    EXPECT_EQ(test.requestText().toLatin1(), proxy.requests[0]);
}

INSTANTIATE_TEST_SUITE_P(Statuses, ProxyHttpStatus,
                         ::testing::Values(StatusCase{200, true}, StatusCase{302, true},
                                           StatusCase{403, true}, StatusCase{407, false}),
                         [](const ::testing::TestParamInfo<StatusCase>& info) {
                             return "Status" + std::to_string(info.param.status);
                         });

TEST(ProxyHttpTest, GarbageAnswerAndRefusedProxyFail)
{
    FaultServer proxy({{"hello there\r\nno status\r\n"}});
    CTestProxyHttp test(30, "target.invalid", 80, "127.0.0.1", proxy.port(), "u", "p");
    EXPECT_FALSE(test.doTest());

    const quint16 closed = freeLoopbackPort();
    CTestProxyHttp refused(30, "target.invalid", 80, "127.0.0.1", closed, "u", "p");
    EXPECT_FALSE(refused.doTest());
}

TEST(ProxyHttpTest, SilentProxiesFailOnceTheSecondsHavePassed)
{
    FaultServer proxy({silentReply()});
    CTestProxyHttp test(2, "target.invalid", 80, "127.0.0.1", proxy.port(), "u", "p");
    QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(test.doTest());
    // Two whole seconds by the clock: more than one has certainly passed.
    EXPECT_GT(timer.elapsed(), 1000);

    CTestSocketProxyConnect tunnel(1, "127.0.0.1", 80, "127.0.0.1", proxy.port(), "", "");
    EXPECT_FALSE(tunnel.DoTestProxy());
    EXPECT_EQ((QVector<QByteArray>{test.requestText().toLatin1(), "CONNECT 127.0.0.1:80 HTTP/1.0\r\n\r\n"}),
              proxy.requests);
}

TEST(ProxySocket, ConnectRequestWithAndWithoutCredentials)
{
    CProxySocket plain;
    plain.SetDataProxy(QStringLiteral("proxy"), 3128, QString(), QString());
    QString out;
    QString host = QStringLiteral("server.example");
    plain.CreateConnectStr(out, host, 443);
    EXPECT_EQ(QStringLiteral("CONNECT server.example:443 HTTP/1.0\r\n\r\n"), out);

    CProxySocket withLogin;
    // Cyrillic credentials go out in CP1251: "юзер" is FE E7 E5 F0.
    withLogin.SetDataProxy(QStringLiteral("proxy"), 3128, QStringLiteral("\u044e\u0437\u0435\u0440"),
                           QStringLiteral("pw"));
    withLogin.CreateConnectStr(out, host, 8443);
    ASSERT_NE(nullptr, QTextCodec::codecForName("CP1251"));
    const QByteArray expected = QByteArray("\xfe\xe7\xe5\xf0:pw").toBase64();
    EXPECT_EQ(QStringLiteral("CONNECT server.example:8443 HTTP/1.0\r\nProxy-Authorization: Basic ")
                  + QString::fromLatin1(expected) + QStringLiteral("\r\n\r\n"),
              out);
}

TEST(ProxySocket, AnswerIsAcceptedOnlyFor200AsSecondWord)
{
    const char ok[] = "HTTP/1.0 200 Connection established";
    EXPECT_EQ(0, CProxySocket::GetAnswerServer(ok, int(strlen(ok))));
    const char refused[] = "HTTP/1.0 407 Proxy Authentication Required";
    EXPECT_EQ(1, CProxySocket::GetAnswerServer(refused, int(strlen(refused))));
    const char oneWord[] = "HTTP/1.0";
    EXPECT_EQ(1, CProxySocket::GetAnswerServer(oneWord, int(strlen(oneWord))));
    EXPECT_EQ(1, CProxySocket::GetAnswerServer("", 0));
    // Longer than the answer buffer: cut, still read.
    const QByteArray longAnswer = "HTTP/1.1 200 " + QByteArray(5000, 'x');
    EXPECT_EQ(0, CProxySocket::GetAnswerServer(longAnswer.constData(), longAnswer.size()));
}

// Both tests through tinyproxy with Basic authentication, to an nginx.
TEST(ThroughTinyproxy, OnlyTheRightCredentialsAndAReachableTargetPass)
{
    QTemporaryDir root;
    NginxServer nginx(root.path());
    ASSERT_TRUE(nginx.started());
    TinyProxy proxy("user", "secret");
    ASSERT_TRUE(proxy.started());
    const quint16 nothing = freeLoopbackPort();
    enum Method { OpenTunnel, ReachTarget, HttpTest };
    const struct {
        Method method;
        quint16 target;
        const char* password;
        bool passes;
    } cases[] = {
        {OpenTunnel, nginx.port(), "secret", true},
        {ReachTarget, nginx.port(), "secret", true},
        {OpenTunnel, nginx.port(), "guess", false},
        {OpenTunnel, nothing, "secret", false},
        {HttpTest, nginx.port(), "secret", true},
        {HttpTest, nginx.port(), "nope", false},
    };
    for (const auto& c : cases) {
        bool passed = false;
        if (c.method == HttpTest) {
            const QByteArray target = "127.0.0.1:" + QByteArray::number(c.target);
            CTestProxyHttp test(30, target.constData(), 80, "127.0.0.1", proxy.port(), "user", c.password);
            passed = test.doTest();
        } else {
            CTestSocketProxyConnect test(30, "127.0.0.1", c.target, "127.0.0.1", proxy.port(), "user",
                                         c.password);
            passed = c.method == ReachTarget ? test.DoTest() : test.DoTestProxy();
        }
        EXPECT_EQ(c.passes, passed) << "method " << c.method << ", target " << c.target << ", "
                                    << c.password;
    }
}

namespace {

mwiTesProxy proxyRecord(quint16 port, int seconds)
{
    mwiTesProxy record;
    std::memset(&record, 0, sizeof record);
    std::strcpy(record.proxy.host, "127.0.0.1");
    record.proxy.port = port;
    std::strcpy(record.proxy.user, "user");
    std::strcpy(record.proxy.password, "pw");
    record.proxyType = seconds;
    record.resultCount = 7;
    return record;
}

}  // namespace

// Code 3517: the module tests its settings' server (the default one without
// settings) through the given proxy and fills exactly one result entry.
TEST(DoProxyConnect, TestsTheConfiguredOrDefaultServerAndFillsOneEntry)
{
    const auto testThrough = [](const QString& configFolder, quint16 proxyPort) {
        TestHost host;
        host.folders[2] = configFolder;
        mwiTesProxy record = proxyRecord(proxyPort, 30);
        EXPECT_EQ(0, host.deliver(HostMsg::TestProxy, reinterpret_cast<intptr_t>(&record)));
        EXPECT_EQ(0, host.deliver(HostMsg::TestProxy, 0));  // no record: nothing to do
        return record;
    };
    QTemporaryDir config;
    writeText(config.filePath(QStringLiteral("download.cfg")),
              "[Address]\npath=files.example.invalid/Win32%5Fx\n");
    FaultServer passing({okReply("", 200)});
    const mwiTesProxy configured = testThrough(config.path(), passing.port());
    EXPECT_EQ(1, value(configured.resultCount));
    EXPECT_STREQ("Download server", configured.results[0].name);
    EXPECT_STREQ("files.example.invalid", configured.results[0].host);
    EXPECT_EQ(80, value(configured.results[0].port));
    EXPECT_EQ(0, value(configured.results[0].failed));
    EXPECT_EQ(QVector<QByteArray>{"HEAD http://files.example.invalid HTTP/1.0\r\n"
                                  "Proxy-Authorization: Basic dXNlcjpwdw==\r\n\r\n"},
              passing.requests);

    QTemporaryDir empty;
    FaultServer refusing({okReply("", 407)});
    const mwiTesProxy fallback = testThrough(empty.path(), refusing.port());
    EXPECT_EQ(1, value(fallback.resultCount));
    EXPECT_STREQ("update.velmora.org", fallback.results[0].host);
    EXPECT_EQ(1, value(fallback.results[0].failed));
    EXPECT_FALSE(QFile::exists(empty.filePath(QStringLiteral("download.cfg"))));
}
