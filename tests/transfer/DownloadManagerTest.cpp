// The download manager and its tasks against the scripted server: log lines,
// the continuation header, retries, once-only finish, unknown URLs, and the
// text task's file.
#include <stdexcept>

#include <QPointer>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "platform/BaseLog.h"
#include "protocol/HostMessages.h"
#include "support/FaultServer.h"
#include "support/FileHelpers.h"
#include "support/RealServers.h"
#include "support/WaitFor.h"
#include "tests/support/TestHost.h"
#include "transfer/DownloadFileText.h"
#include "transfer/DownloadManager.h"

using Download::CDownloadManager;

namespace {

QString urlOn(const FaultServer& server, const char* path)
{
    return QStringLiteral("http://127.0.0.1:%1%2").arg(server.port()).arg(QLatin1String(path));
}

struct Recorder {
    explicit Recorder(CDownloadManager& manager)
    {
        QObject::connect(&manager, &CDownloadManager::SignalDownloadFinished,
                         [this](const CDownloadManager&, const QString& url) { finished << url; });
        QObject::connect(&manager, &CDownloadManager::SignalError,
                         [this](const CDownloadManager&, const QString& url,
                                QNetworkReply::NetworkError code) {
                             errors << url;
                             codes << int(code);
                         });
    }
    QStringList finished;
    QStringList errors;
    QVector<int> codes;
};

QStringList textsOf(const TestHost& host, int type)
{
    QStringList texts;
    for (const LoggedLine& line : host.logLines)
        if (line.type == type)
            texts << line.text;
    return texts;
}

}  // namespace

class DownloadManagerTest : public ::testing::Test {
protected:
    void SetUp() override { host.deliver(HostMsg::HostReady); }
    TestHost host;
};

TEST_F(DownloadManagerTest, FetchesIntoMemoryWithBuilderHeadersAndLogs)
{
    FaultServer server({okReply("payload")});
    CDownloadManager manager;
    Recorder rec(manager);
    const QString url = urlOn(server, "/x.txt");
    manager.Download(url, false, true, [](Download::CDownloadRequestBuilder& b) {
        b.AddHeader(QStringLiteral("X-First"), b.GetUrl().right(5));
        b.AddHeader(QStringLiteral("X-Second"), QStringLiteral("2"));
    });
    ASSERT_TRUE(waitFor([&] { return !rec.finished.isEmpty(); }));
    EXPECT_EQ(QByteArray("payload"), manager.GetData(url));
    ASSERT_EQ(1, server.requests.size());
    const QByteArray request = server.requests[0];
    const int first = request.indexOf("X-First: x.txt\r\n");
    const int second = request.indexOf("X-Second: 2\r\n");
    EXPECT_GE(first, 0);
    EXPECT_GT(second, first);

    const QStringList info = textsOf(host, logTypeMessage);
    EXPECT_TRUE(info.contains(QStringLiteral("CDownloadManager::Download(\"") + url + "\",\"0\",\"1\")"));
    EXPECT_TRUE(info.contains(QStringLiteral("CDownload::Download()")));
    EXPECT_TRUE(info.contains(QStringLiteral("CDownload::DownloadFinished m_URL: ") + url));
    EXPECT_TRUE(info.contains(QStringLiteral("CDownloadManager::SlotDownloadFinished(\"") + url + "\")"));
}

TEST_F(DownloadManagerTest, ProxySettersLogButNeverThePassword)
{
    CDownloadManager manager;
    manager.SetProxyHost(QStringLiteral("proxy.local"));
    manager.SetProxyPort(3128);
    manager.SetProxyLogin(QStringLiteral("alice"));
    manager.SetProxyPassword(QStringLiteral("s3cret"));
    EXPECT_EQ((QStringList{QStringLiteral("CDownloadManager::SetProxyHost(\"proxy.local\")"),
                           QStringLiteral("CDownloadManager::SetProxyPort(\"3128\")"),
                           QStringLiteral("CDownloadManager::SetProxyLogin(\"alice\")"),
                           QStringLiteral("CDownloadManager::SetProxyPassword(\"HiddenValue\")")}),
              textsOf(host, logTypeMessage));
    for (const LoggedLine& line : host.logLines)
        EXPECT_FALSE(line.text.contains(QStringLiteral("s3cret")));
}

TEST_F(DownloadManagerTest, UnknownUrlsThrowWithTheUrlAsText)
{
    CDownloadManager manager;
    const QString url = QStringLiteral("http://127.0.0.1:1/never");
    try {
        manager.GetData(url);
        FAIL() << "no exception";
    } catch (const std::out_of_range& e) {
        EXPECT_EQ(std::string("http://127.0.0.1:1/never"), e.what());
    }
    EXPECT_THROW(manager.GetHeaderLocation(url), std::out_of_range);
    EXPECT_THROW(manager.GetCookie(url), std::out_of_range);
    EXPECT_THROW(manager.SetCookie(url, QStringLiteral("a"), QStringLiteral("b")), std::out_of_range);
    EXPECT_THROW(manager.ClearUrl(url), std::out_of_range);
}

TEST_F(DownloadManagerTest, FailedAttemptIsRetriedWithTheContinuationRangeAndFinishesOnce)
{
    // 0x141 bytes promised, 0x41 sent: the continuation's Range is made of
    // the low bytes of the received and total counts: "A-A".
    const QByteArray body = patternBytes(0x141, 9);
    FaultServer server({{"HTTP/1.1 200 OK\r\nContent-Length: 321\r\n\r\n" + body.left(0x41)},
                        {"HTTP/1.1 206 Partial Content\r\nContent-Length: 256\r\n\r\n" + body.mid(0x41)}});
    CDownloadManager manager;
    Recorder rec(manager);
    const QString url = urlOn(server, "/r.bin");
    manager.Download(url, false, false);
    ASSERT_TRUE(waitFor([&] { return !rec.finished.isEmpty(); }));
    waitFor([] { return false; }, 1500);

    EXPECT_EQ(QStringList{url}, rec.finished);
    ASSERT_FALSE(rec.errors.isEmpty());
    EXPECT_EQ(url, rec.errors[0]);
    ASSERT_EQ(2, server.requests.size());
    EXPECT_FALSE(server.requests[0].contains("Range"));
    EXPECT_TRUE(server.requests[1].contains("\r\nRange: A-A\r\n")) << server.requests[1].constData();
    EXPECT_TRUE(manager.GetData(url) == body);

    const QStringList errorLines = textsOf(host, logTypeError);
    EXPECT_TRUE(errorLines.contains(QStringLiteral("CDownloadManager::SlotError(\"") + url + "\\, \""
                                    + QString::number(rec.codes[0]) + "\")"));
    EXPECT_TRUE(errorLines.contains(QStringLiteral("CDownload::SlotError(")
                                    + QString::number(rec.codes[0]) + ")"));
}

TEST_F(DownloadManagerTest, RefusedDownloadKeepsRetryingUntilCleared)
{
    CDownloadManager manager;
    Recorder rec(manager);
    const QString url = QStringLiteral("http://127.0.0.1:%1/x").arg(freeLoopbackPort());
    manager.Download(url, false, false);
    ASSERT_TRUE(waitFor([&] { return rec.errors.size() >= 3; }));
    manager.ClearUrl(url);
    const int seen = rec.errors.size();
    waitFor([] { return false; }, 2500);
    EXPECT_EQ(seen, rec.errors.size());
    EXPECT_TRUE(rec.finished.isEmpty());
    EXPECT_THROW(manager.GetData(url), std::out_of_range);
}

TEST_F(DownloadManagerTest, TextTasksReactToTheirOwnUrlAndAppend)
{
    FaultServer one({okReply(QByteArray("first\0hidden", 12))});
    FaultServer two({okReply("second")});
    QTemporaryDir dir;
    const QString pathOne = dir.filePath(QStringLiteral("one.txt"));
    const QString pathTwo = dir.filePath(QStringLiteral("two.txt"));
    writeText(pathOne, "old:");
    CDownloadManager manager;
    Recorder rec(manager);

    EXPECT_EQ(nullptr, GetDownload(manager, urlOn(one, "/1"), pathOne, 1));
    QPointer<CBaseDownload> taskOne = GetDownload(manager, urlOn(one, "/1"), pathOne, 0);
    QPointer<CBaseDownload> taskTwo = GetDownload(manager, urlOn(two, "/2"), pathTwo, 0);
    ASSERT_TRUE(taskOne && taskTwo);
    EXPECT_TRUE(taskOne->Check(manager, urlOn(one, "/1")));
    EXPECT_FALSE(taskOne->Check(manager, urlOn(two, "/2")));
    taskOne->Download();
    taskTwo->Download();
    ASSERT_TRUE(waitFor([&] { return taskOne.isNull() && taskTwo.isNull(); }));
    EXPECT_EQ(QByteArray("old:first"), readFile(pathOne));
    EXPECT_EQ(QByteArray("second"), readFile(pathTwo));

    // A second task for the same file appends once more; the manager's entry
    // is cleared first so that the download starts afresh.
    manager.ClearUrl(urlOn(two, "/2"));
    QPointer<CBaseDownload> again = GetDownload(manager, urlOn(two, "/2"), pathTwo, 0);
    again->Download();
    ASSERT_TRUE(waitFor([&] { return again.isNull(); }));
    EXPECT_EQ(QByteArray("secondsecond"), readFile(pathTwo));
}
