// The download manager against the scripted server: the password kept out of
// the log, the continuation header, retries until cleared, once-only finish
// and unknown URLs.
#include <stdexcept>

#include <gtest/gtest.h>

#include "protocol/HostMessages.h"
#include "support/FaultServer.h"
#include "support/FileHelpers.h"
#include "support/RealServers.h"
#include "support/WaitFor.h"
#include "tests/support/TestHost.h"
#include "transfer/DownloadManager.h"

using Download::CDownloadManager;

namespace {

QString urlOn(const FaultServer& server, const char* path)
{
    return QStringLiteral("http://127.0.0.1:%1%2").arg(server.port()).arg(QLatin1String(path));
}

class DownloadManagerTest : public ::testing::Test {
protected:
    DownloadManagerTest()
    {
        host.deliver(HostMsg::HostReady);
        QObject::connect(&manager, &CDownloadManager::SignalDownloadFinished,
                         [this](const CDownloadManager&, const QString& url) { finished << url; });
        QObject::connect(&manager, &CDownloadManager::SignalError,
                         [this](const CDownloadManager&, const QString& url, QNetworkReply::NetworkError) {
                             errors << url;
                         });
    }

    TestHost host;
    CDownloadManager manager;
    QStringList finished, errors;
};

}  // namespace

TEST_F(DownloadManagerTest, ProxySettersLogButNeverThePassword)
{
    manager.SetProxyLogin(QStringLiteral("alice"));
    manager.SetProxyPassword(QStringLiteral("s3cret"));
    QStringList texts;
    for (const LoggedLine& line : host.logLines)
        texts << line.text;
    EXPECT_EQ((QStringList{QStringLiteral("CDownloadManager::SetProxyLogin(\"alice\")"),
                           QStringLiteral("CDownloadManager::SetProxyPassword(\"HiddenValue\")")}),
              texts.filter(QStringLiteral("SetProxy")));
    EXPECT_FALSE(texts.join('\n').contains(QStringLiteral("s3cret")));
}

// A failed attempt is retried with the continuation's Range and the
// builder's headers in their order; the data ends up in memory and the
// finish is signalled once.
TEST_F(DownloadManagerTest, FailedAttemptIsRetriedWithTheContinuationRangeAndFinishesOnce)
{
    // 0x141 bytes promised, 0x41 sent: the continuation's Range is made of
    // the low bytes of the received and total counts: "A-A".
    const QByteArray body = patternBytes(0x141, 9);
    FaultServer server({{"HTTP/1.1 200 OK\r\nContent-Length: 321\r\n\r\n" + body.left(0x41)},
                        {"HTTP/1.1 206 Partial Content\r\nContent-Length: 256\r\n\r\n" + body.mid(0x41)}});
    const QString url = urlOn(server, "/r.bin");
    manager.Download(url, false, true, [](Download::CDownloadRequestBuilder& b) {
        b.AddHeader(QStringLiteral("X-First"), b.GetUrl().right(5));
        b.AddHeader(QStringLiteral("X-Second"), QStringLiteral("2"));
    });
    ASSERT_TRUE(waitFor([&] { return !finished.isEmpty(); }));
    waitFor([] { return false; }, 1500);

    EXPECT_EQ(QStringList{url}, finished);
    ASSERT_FALSE(errors.isEmpty());
    EXPECT_EQ(url, errors[0]);
    ASSERT_EQ(2, server.requests.size());
    EXPECT_FALSE(server.requests[0].contains("Range"));
    EXPECT_TRUE(server.requests[1].contains("\r\nRange: A-A\r\n")) << server.requests[1].constData();
    for (const QByteArray& request : server.requests) {
        EXPECT_GE(request.indexOf("X-First: r.bin\r\n"), 0);
        EXPECT_GT(request.indexOf("X-Second: 2\r\n"), request.indexOf("X-First: r.bin\r\n"));
    }
    EXPECT_TRUE(manager.GetData(url) == body);
}

// A refused download is retried until its URL is cleared; a cleared (or
// never known) URL is an error with the URL as its text.
TEST_F(DownloadManagerTest, RefusedDownloadKeepsRetryingUntilClearedThenIsUnknown)
{
    const QString url = QStringLiteral("http://127.0.0.1:%1/x").arg(freeLoopbackPort());
    manager.Download(url, false, false);
    ASSERT_TRUE(waitFor([&] { return errors.size() >= 3; }));
    manager.ClearUrl(url);
    const int seen = errors.size();
    waitFor([] { return false; }, 2500);
    EXPECT_EQ(seen, errors.size());
    EXPECT_TRUE(finished.isEmpty());

    try {
        manager.GetData(url);
        FAIL() << "no exception";
    } catch (const std::out_of_range& e) {
        EXPECT_EQ(url.toStdString(), e.what());
    }
    EXPECT_THROW(manager.GetCookie(url), std::out_of_range);
    EXPECT_THROW(manager.ClearUrl(url), std::out_of_range);
}
