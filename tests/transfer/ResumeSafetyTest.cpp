// Resuming a partial file: the kept bytes are only ever followed by the rest
// of the same file, whatever the server or a proxy on the way answers.
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "support/FaultServer.h"
#include "support/FileHelpers.h"
#include "support/RecordingClient.h"
#include "support/WaitFor.h"
#include "tests/support/TestHost.h"
#include "transfer/DownloadHttp.h"
#include "transfer/ResumeAnswer.h"

TEST(ResumeAnswer, OnlyTheRestOfTheSameFileIsAppended)
{
    const struct {
        int status;
        const char* contentRange;
        ResumeAnswer expected;
    } rows[] = {
        {206, "bytes 44-4999/5000", ResumeAnswer::Append},
        {206, "BYTES 44-4999/*", ResumeAnswer::Append},
        {206, "bytes 0-4999/5000", ResumeAnswer::Refuse},    // from the start: a different offset
        {206, "bytes 45-4999/5000", ResumeAnswer::Refuse},
        {206, "", ResumeAnswer::Refuse},                     // no range named
        {206, "bytes 44-43/5000", ResumeAnswer::Refuse},     // empty range
        {206, "bytes=44-4999/5000", ResumeAnswer::Refuse},   // not the answer's form
        {206, "bytes 44-4999", ResumeAnswer::Refuse},
        {200, "", ResumeAnswer::Restart},                    // Range ignored: the whole file
        {200, "bytes 44-4999/5000", ResumeAnswer::Restart},
        {416, "bytes */5000", ResumeAnswer::Refuse},
        {503, "", ResumeAnswer::Refuse},
        {302, "", ResumeAnswer::Refuse},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.expected, classifyResumeAnswer(row.status, QString::fromLatin1(row.contentRange), 44))
            << row.status << " " << row.contentRange;
}

// 1300 bytes lie on disk, of which 1044 are kept (the last 256 are never
// trusted); the first answer is the row's. A refused answer leaves those
// bytes alone and the retry resumes from them, trimmed once more, with a
// correct 206. Whatever the first answer, the file ends as the server's file.
TEST(ResumeSafety, TheFileNeverJoinsTheKeptBytesToAnotherBody)
{
    const QByteArray body = patternBytes(5000, 7);
    const ScriptedReply rest{"HTTP/1.1 206 Partial Content\r\nContent-Range: bytes 788-4999/5000\r\n"
                             "Content-Length: 4212\r\n\r\n" + body.mid(788)};
    const struct {
        const char* name;
        ScriptedReply first;
        int requests;            // 1: the first answer completed the file
        const char* status;      // the status-bar text of the refusal, if any
        QVector<long> bytesOnDisk;
    } rows[] = {
        {"whole file for a ranged request", okReply(body), 1, "", {1044, -1044}},
        {"206 without Content-Range",
         {"HTTP/1.1 206 Partial Content\r\nContent-Length: 3956\r\n\r\n" + body.mid(1044)}, 2,
         "Download: Error ResumeRefused", {1044, 788}},
        {"206 from the wrong offset",
         {"HTTP/1.1 206 Partial Content\r\nContent-Range: bytes 0-4999/5000\r\nContent-Length: 5000\r\n\r\n" + body},
         2, "Download: Error ResumeRefused", {1044, 788}},
        {"416", okReply("<html>range not satisfiable</html>", 416, "Content-Range: bytes */5000\r\n"), 2,
         "Download: Error ResumeRefused", {1044, 788}},
        {"503 page", okReply("<html>busy</html>", 503), 2, "Download: Error ResumeRefused", {1044, 788}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        TestHost host;
        RecordingClient client;
        QTemporaryDir dir;
        const QString local = dir.filePath(QStringLiteral("mod.gz"));
        writeText(local, body.left(1300));
        FaultServer server({row.first, rest});
        CDownloadHttp http(&client, QStringLiteral("http://127.0.0.1:%1/Win32").arg(server.port()));
        http.setRetryIntervalForTest(30);
        http.getFile(QStringLiteral("/mod.gz"), dir.path(), 0, CDownloadHttp::KindDownloadModule, 0, false);
        ASSERT_TRUE(waitFor([&] { return client.completions() > 0; }));

        EXPECT_TRUE(readFile(local) == body);
        EXPECT_EQ(row.requests, server.requests.size());
        ASSERT_GE(server.requests.size(), 1);
        EXPECT_TRUE(server.requests[0].contains("\r\nRange: bytes=1044-\r\n")) << server.requests[0].constData();
        const QString status = client.statusMessages.isEmpty() ? QString() : client.statusMessages[0].first;
        EXPECT_EQ(QString::fromLatin1(row.status), status);
        EXPECT_EQ(row.bytesOnDisk, client.bytesOnDisk);
        ASSERT_EQ(1, client.completions());
        EXPECT_EQ(0, client.calls[0].number);  // not reported as not found
    }
}
