// Answers with a broken length: the size probe reads it as 0 instead of
// failing (and being retried for ever), and a 404 stays a 404. A download
// folder that refuses the bytes ends the fetch with a text that says so.
#include <csignal>

#include <sys/resource.h>

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "support/FaultServer.h"
#include "support/RecordingClient.h"
#include "support/WaitFor.h"
#include "tests/support/TestHost.h"
#include "transfer/DownloadHttp.h"

namespace {

QString base(const FaultServer& server)
{
    return QStringLiteral("http://127.0.0.1:%1/Win32").arg(server.port());
}

}  // namespace

TEST(BrokenAnswer, TheSizeProbeReadsAnUnusableLengthAsZero)
{
    const struct {
        const char* length;
        long size;
    } rows[] = {{"123", 123}, {" 123 ", 123}, {"12ab", 0}, {"-5", 0}, {"99999999999999999999999", 0}, {"", 0}};
    for (const auto& row : rows) {
        TestHost host;
        RecordingClient client;
        FaultServer server({{"HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray(row.length) + "\r\n\r\nbody"}});
        CDownloadHttp http(&client, base(server));
        http.setRetryIntervalForTest(30);
        http.getFileSize(QStringLiteral("/mod.gz"));
        ASSERT_TRUE(waitFor([&] { return client.completions() > 0; })) << row.length;
        EXPECT_EQ(QStringLiteral("getSizeFile"), client.calls[0].name) << row.length;
        EXPECT_EQ(row.size, client.calls[0].number) << row.length;
        EXPECT_EQ(1, server.requests.size()) << row.length;
        EXPECT_TRUE(client.statusMessages.isEmpty()) << row.length;
    }
}

TEST(BrokenAnswer, A404IsNotFoundWhateverBecomesOfItsPage)
{
    const QByteArray rows[] = {
        "HTTP/1.1 404 Not Found\r\nContent-Length: 12ab\r\n\r\n<html>gone</html>",
        "HTTP/1.1 404 Not Found\r\nContent-Length: 500\r\n\r\n<html>cut short",
    };
    for (const QByteArray& reply : rows) {
        TestHost host;
        RecordingClient client;
        QTemporaryDir dir;
        FaultServer server({{reply}});
        CDownloadHttp http(&client, base(server));
        http.setRetryIntervalForTest(30);
        http.getFile(QStringLiteral("/mod.gz"), dir.path(), 0, CDownloadHttp::KindDownloadModule, 0, false);
        ASSERT_TRUE(waitFor([&] { return client.completions() > 0; })) << reply.constData();
        EXPECT_EQ(QStringLiteral("downloadModule"), client.calls[0].name);
        EXPECT_EQ(1, client.calls[0].number) << reply.constData();  // not found
        EXPECT_FALSE(QFile::exists(dir.filePath(QStringLiteral("mod.gz"))));
        EXPECT_EQ(1, server.requests.size());
        EXPECT_TRUE(client.statusMessages.isEmpty());
    }
}

// The process's file size limit stands in for a full disk: writes past it
// fail (EFBIG) the way they fail on a full one (ENOSPC).
TEST(BrokenAnswer, AFolderThatRefusesTheBytesNamesTheFileAndFailsTheFetch)
{
    TestHost host;
    RecordingClient client;
    QTemporaryDir dir;
    const QByteArray body(200000, 'w');
    FaultServer server({okReply(body)});
    CDownloadHttp http(&client, base(server));
    http.setRetryIntervalForTest(30);

    rlimit before{};
    ASSERT_EQ(0, ::getrlimit(RLIMIT_FSIZE, &before));
    rlimit limited = before;
    limited.rlim_cur = 4096;
    const auto previous = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &limited));
    http.getFile(QStringLiteral("/mod.gz"), dir.path(), 0, CDownloadHttp::KindDownloadModule, 0, false);
    const bool ended = waitFor([&] { return client.completions() > 0; });
    ::setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, previous);

    ASSERT_TRUE(ended);
    EXPECT_EQ(QStringLiteral("downloadModule"), client.calls[0].name);
    EXPECT_EQ(1, client.calls[0].number);  // failed: the dialog counts it
    ASSERT_EQ(1, client.statusMessages.size());
    EXPECT_EQ(QStringLiteral("Download: Error writing %1: File too large").arg(dir.filePath(QStringLiteral("mod.gz"))),
              client.statusMessages[0].first)
        << client.statusMessages[0].first.toStdString();
    EXPECT_EQ(1, server.requests.size());
}
