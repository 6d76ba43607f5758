// The download manager and its tasks against the scripted server: log lines,
// the continuation header, retries until cleared, once-only finish, unknown
// URLs, and the text task's file.
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

class DownloadManagerTest : public ::testing::Test {
protected:
    DownloadManagerTest()
    {
        host.deliver(HostMsg::HostReady);
        QObject::connect(&manager, &CDownloadManager::SignalDownloadFinished,
                         [this](const CDownloadManager&, const QString& url) { finished << url; });
        QObject::connect(&manager, &CDownloadManager::SignalError,
                         [this](const CDownloadManager&, const QString& url, QNetworkReply::NetworkError code) {
                             errors << url;
                             codes << int(code);
                         });
    }
    QStringList logged(int type) const
    {
        QStringList texts;
        for (const LoggedLine& line : host.logLines)
            if (line.type == type)
                texts << line.text;
        return texts;
    }

    TestHost host;
    CDownloadManager manager;
    QStringList finished, errors;
    QVector<int> codes;
};

}  // namespace

TEST_F(DownloadManagerTest, ProxySettersLogButNeverThePassword)
{
    manager.SetProxyHost(QStringLiteral("proxy.local"));
    manager.SetProxyPort(3128);
    manager.SetProxyLogin(QStringLiteral("alice"));
    manager.SetProxyPassword(QStringLiteral("s3cret"));
    EXPECT_EQ((QStringList{QStringLiteral("CDownloadManager::SetProxyHost(\"proxy.local\")"),
                           QStringLiteral("CDownloadManager::SetProxyPort(\"3128\")"),
                           QStringLiteral("CDownloadManager::SetProxyLogin(\"alice\")"),
                           QStringLiteral("CDownloadManager::SetProxyPassword(\"HiddenValue\")")}),
              logged(logTypeMessage));
    for (const LoggedLine& line : host.logLines)
        EXPECT_FALSE(line.text.contains(QStringLiteral("s3cret")));
}

// A failed attempt is retried with the continuation's Range and the
// builder's headers in their order; the data ends up in memory, the finish
// is signalled once, and every step is logged.
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
        const int first = request.indexOf("X-First: r.bin\r\n");
        EXPECT_GE(first, 0);
        EXPECT_GT(request.indexOf("X-Second: 2\r\n"), first);
    }
    EXPECT_TRUE(manager.GetData(url) == body);

    const QStringList info = logged(logTypeMessage);
    for (const QString& line : {"CDownloadManager::Download(\"" + url + "\",\"0\",\"1\")",
                                QStringLiteral("CDownload::Download()"), "CDownload::DownloadFinished m_URL: " + url,
                                "CDownloadManager::SlotDownloadFinished(\"" + url + "\")"})
        EXPECT_TRUE(info.contains(line)) << line.toStdString();
    const QStringList errorLines = logged(logTypeError);
    const QString code = QString::number(codes[0]);
    EXPECT_TRUE(errorLines.contains("CDownloadManager::SlotError(\"" + url + "\\, \"" + code + "\")"));
    EXPECT_TRUE(errorLines.contains("CDownload::SlotError(" + code + ")"));
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
    EXPECT_THROW(manager.GetHeaderLocation(url), std::out_of_range);
    EXPECT_THROW(manager.GetCookie(url), std::out_of_range);
    EXPECT_THROW(manager.SetCookie(url, QStringLiteral("a"), QStringLiteral("b")), std::out_of_range);
    EXPECT_THROW(manager.ClearUrl(url), std::out_of_range);
}

// A text task reacts to its own URL only, and appends the data up to its
// first zero byte to its file.
TEST_F(DownloadManagerTest, TextTasksReactToTheirOwnUrlAndAppend)
{
    FaultServer one({okReply(QByteArray("first\0hidden", 12))});
    FaultServer two({okReply("second")});
    QTemporaryDir dir;
    const QString pathOne = dir.filePath(QStringLiteral("one.txt"));
    const QString pathTwo = dir.filePath(QStringLiteral("two.txt"));
    writeText(pathOne, "old:");

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
