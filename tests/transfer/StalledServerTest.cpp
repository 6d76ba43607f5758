// A server that goes quiet: before its answer, or half way through a body
// with the connection left open. The idle limit gives the connection up as a
// network error, and the retry resumes what had arrived.
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "support/FaultServer.h"
#include "support/FileHelpers.h"
#include "support/RecordingClient.h"
#include "support/WaitFor.h"
#include "tests/support/TestHost.h"
#include "transfer/DownloadHttp.h"
#include "update/DownloadSettings.h"

TEST(StalledServer, AQuietConnectionIsRetriedAndTheFileCompleted)
{
    const QByteArray body = patternBytes(3000, 5);
    const QByteArray cut = "HTTP/1.1 200 OK\r\nContent-Length: 3000\r\n\r\n" + body.left(1500);
    const ScriptedReply rest{"HTTP/1.1 206 Partial Content\r\nContent-Range: bytes 1244-2999/3000\r\n"
                             "Content-Length: 1756\r\n\r\n" + body.mid(1244)};
    const struct {
        const char* name;
        ScriptedReply first;
        ScriptedReply second;
        const char* secondRange;  // the retry's Range field, "" for none
    } rows[] = {
        {"silent after the request", silentReply(), okReply(body), ""},
        {"silent half way through the body", {cut, false, false}, rest, "bytes=1244-"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        TestHost host;
        RecordingClient client;
        QTemporaryDir dir;
        FaultServer server({row.first, row.second});
        CDownloadHttp http(&client, QStringLiteral("http://127.0.0.1:%1/Win32").arg(server.port()));
        http.setRetryIntervalForTest(30);
        http.setIdleTimeout(300);
        http.getFile(QStringLiteral("/mod.gz"), dir.path(), 0, CDownloadHttp::KindDownloadModule, 0, false);
        ASSERT_TRUE(waitFor([&] { return client.completions() > 0; }));

        EXPECT_TRUE(readFile(dir.filePath(QStringLiteral("mod.gz"))) == body);
        ASSERT_EQ(2, server.requests.size());
        const QByteArray range = QByteArray(row.secondRange);
        EXPECT_EQ(!range.isEmpty(), server.requests[1].contains("\r\nRange: " + range + "\r\n"))
            << server.requests[1].constData();
        EXPECT_EQ((QVector<QPair<QString, int>>{{QStringLiteral("Download: Error IdleTimeout"), 30}}),
                  client.statusMessages);
    }
}

TEST(StalledServer, TheIdleLimitComesFromTheSettingsFile)
{
    QTemporaryDir dir;
    const QString settings = dir.filePath(QStringLiteral("download.cfg"));
    const struct {
        const char* text;  // the file's content; null: no file
        int seconds;
    } rows[] = {
        {nullptr, 60},
        {"[Address]\r\nPath=h\r\n", 60},
        {"[Network]\r\nIdleTimeout=5\r\n", 5},
        {"[Network]\r\nIdleTimeout=0\r\n", 60},
        {"[Network]\r\nIdleTimeout=-3\r\n", 60},
        {"[Network]\r\nIdleTimeout=soon\r\n", 60},
        {"[Network]\r\nIdleTimeout=86401\r\n", 60},
    };
    for (const auto& row : rows) {
        QFile::remove(settings);
        if (row.text)
            writeText(settings, row.text);
        EXPECT_EQ(row.seconds, readIdleTimeoutSeconds(settings, 60)) << (row.text ? row.text : "no file");
    }
}
