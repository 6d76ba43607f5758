// The HTTP file client against the scripted server: its exact requests, the
// size probe, dispatch by kind and the 404 rule, error texts and retries, the
// idle limit, resumption and a folder that refuses bytes. Large files from a
// real server are the whole-run tests' business (tests/e2e).
#include <csignal>

#include <sys/resource.h>

#include <gtest/gtest.h>

#include "support/FileHelpers.h"
#include "support/RealServers.h"
#include "support/RecordingClient.h"
#include "transfer/ResumeAnswer.h"
#include "update/DownloadSettings.h"

namespace {

using Messages = QVector<QPair<QString, int>>;

// The request the client sends for path under http://127.0.0.1:port/Win32.
QByteArray clientRequest(quint16 port, const QByteArray& path, const QByteArray& encodingAndRange)
{
    const QByteArray hostPort = "127.0.0.1:" + QByteArray::number(port);
    const QByteArray url = "http://" + hostPort + "/Win32" + path;
    return "GET " + url + " HTTP/1.1\r\nUser-Agent: DownloadHttp1.0.0 (1.0.0)\r\nAccept: */*\r\n" + encodingAndRange
        + "Referer: " + url.left(url.lastIndexOf('/') + 1) + "\r\nHost: " + hostPort + "\r\n\r\n";
}

// A 206 answer carrying body from byte at on.
ScriptedReply restFrom(const QByteArray& body, int at)
{
    return okReply(body.mid(at), 206, "Content-Range: bytes " + QByteArray::number(at) + "-"
                       + QByteArray::number(body.size() - 1) + "/" + QByteArray::number(body.size()) + "\r\n");
}

}  // namespace

// The probe is a GET (with the misspelt field and a bare "Range: bytes")
// aborted once the header is in; a length it cannot use reads as 0 instead
// of failing and being retried for ever.
TEST(DownloadHttp, SizeProbeSendsItsHeaderAndReadsAnUnusableLengthAsZero)
{
    const struct {
        QByteArray length;  // the Content-Length field; null: none, the close ends the body
        long size;
    } rows[] = {{"123456", 123456}, {" 123 ", 123}, {"12ab", 0}, {"-5", 0}, {"99999999999999999999999", 0},
                {"", 0},            {QByteArray(), 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.length.isNull() ? "no length" : row.length.constData());
        const QByteArray length = row.length.isNull() ? QByteArray() : "Content-Length: " + row.length + "\r\n";
        ClientOn c({{"HTTP/1.1 200 OK\r\n" + length + "\r\nbody"}});
        ASSERT_TRUE(c.fetch("\\lists\\mod.txt", 0, 0, true));
        waitFor([] { return false; }, 50);
        EXPECT_EQ(QVector<QByteArray>{clientRequest(c.server.port(), "/lists/mod.txt",
                                                    "Accept-Encodinlg: \r\nRange: bytes\r\n")},
                  c.server.requests);
        ASSERT_EQ(1, c.client.completions());
        EXPECT_EQ(QStringLiteral("getSizeFile"), c.client.calls[0].name);
        EXPECT_EQ(row.size, c.client.calls[0].number);
        EXPECT_TRUE(c.client.statusMessages.isEmpty());
    }
}

// Each kind's completion goes to its own call; only a module download is told
// that the file was not found (a 404 leaves no file; TransferFaults has
// its broken pages). The name is sent percent-encoded and decoded for the local file.
TEST(DownloadHttp, EachKindsCompletionGoesToItsCallWithTheNotFoundRule)
{
    const struct {
        ScriptedReply reply;
        QByteArray file;  // null: not found
    } answers[] = {
        // Kept open, so that only the length ends the body; what follows it is dropped.
        {{"HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nlist and more", false}, "list"},
        // A refused login, to a server or a proxy, is complete (the 401 up to the close): its page is the file.
        {{"HTTP/1.1 401 Unauthorized\r\n\r\nlogin"}, "login"},
        {okReply("proxy login", 407), "proxy login"},
        {okReply("<html>gone</html>", 404), QByteArray()}};
    QList<ScriptedReply> script;
    for (int kind = 0; kind < 7; ++kind)
        for (const auto& answer : answers)
            script << answer.reply;
    ClientOn c(script << okReply("list"));
    const char* const calls[] = {"parseFileTxt",   "parseFileTxt1",      "parseFileTxt2",          "downloadModule",
                                 "getNewModule", "autoDownloadConfig", "autoDownloadConfigDescr"};
    const bool passesParam[] = {true, true, true, false, false, false, true};
    for (int kind = 0; kind < 7; ++kind) {
        for (const auto& answer : answers) {
            SCOPED_TRACE(testing::Message() << calls[kind] << ", " << answer.reply.bytes.left(30).constData());
            QFile::remove(c.local("my l.txt"));
            ASSERT_TRUE(c.fetch("\\docs\\my%20l.txt?v=2", kind, 42));
            EXPECT_EQ(QString::fromLatin1(calls[kind]), c.client.calls.last().name);
            EXPECT_EQ(c.local("my l.txt"), c.client.calls.last().file);
            const bool notFound = answer.file.isNull() && kind == CDownloadHttp::KindDownloadModule;
            EXPECT_EQ(passesParam[kind] ? 42 : notFound ? 1 : 0, c.client.calls.last().number);
            EXPECT_EQ(answer.file, readFile(c.local("my l.txt")));
            EXPECT_EQ(!answer.file.isNull(), QFile::exists(c.local("my l.txt")));
        }
    }
    EXPECT_EQ(clientRequest(c.server.port(), "/docs/my%20l.txt?v=2", "Accept-Encoding: \r\n"), c.server.requests[0]);
    // A kind beyond the table is fetched and reported to no one; nothing was
    // reported twice or retried.
    c.http.getFile(QStringLiteral("/other.txt"), c.dir.path(), 42, 7, 0, false);
    waitFor([&] { return !c.http.isBusy(); });
    waitFor([] { return false; }, 100);
    EXPECT_EQ(28, c.client.completions());
    EXPECT_EQ(29, c.server.requests.size());
    EXPECT_TRUE(c.client.statusMessages.isEmpty());
}

// How a module fetch ended: the server's file in full, not found (no file
// and the owner told so), or a download folder that refused the bytes (the
// fetch counts as failed and is not retried).
enum class Ending { Whole, NotFound, WriteRefused };

struct TransferFault {
    const char* name;
    int onDisk;           // bytes of the file already on disk (the last 256 are never trusted)
    ScriptedReply reply;  // the first answer; for a retried fault a second one completes the file
    const char* text;     // the status-bar text ("%1": the local file); "": none
    QVector<long> kept;   // bytes on disk reported: resumed from; negative: written over
    Ending ending = Ending::Whole;
    const char* folder = "";  // under the download folder; one that does not exist refuses the file
    long sizeLimit = 0;       // the process's file size limit, as a full disk refuses writes
};

void PrintTo(const TransferFault& fault, std::ostream* out)
{
    *out << fault.name;
}

class TransferFaults : public ::testing::TestWithParam<TransferFault> {};

// A network fault's text shows for the retry interval; the retry keeps all
// but the last 256 bytes on disk (through a copy that is then removed) and
// asks for the rest. A 200 to a ranged request rewrites the file from byte 0;
// any other answer (ResumeAnswer below) leaves the kept bytes alone, and the
// retry resumes from them, trimmed once more. Such a file always ends as the
// server's file. A 404 is not found whatever becomes of its page and leaves
// no file; a folder that refuses the bytes names the file and the reason and
// stays in the status bar. Neither is retried.
TEST_P(TransferFaults, TheUserSeesWhatWentWrongAndNoFileIsEverAMix)
{
    const TransferFault& f = GetParam();
    const QByteArray body = patternBytes(20000, 3);
    const bool retried = *f.text && f.ending == Ending::Whole;
    const int resumed = f.kept.isEmpty() ? 0 : int(qMax(0L, f.kept.last()));
    ClientOn c({f.reply, resumed ? restFrom(body, resumed) : okReply(body)});
    c.http.setIdleTimeout(300);
    const QString folder = c.local(f.folder);
    const QString local = folder + "/big.gz";
    if (f.onDisk)
        writeText(local, body.left(f.onDisk));
    rlimit before{};
    ASSERT_EQ(0, ::getrlimit(RLIMIT_FSIZE, &before));
    const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    if (f.sizeLimit) {
        rlimit limited = before;
        limited.rlim_cur = rlim_t(f.sizeLimit);
        ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &limited));
    }
    const int completions = c.client.completions();
    c.http.getFile(QStringLiteral("/sub/big.gz"), folder, 0, CDownloadHttp::KindDownloadModule, 0, true);
    EXPECT_EQ(completions, c.client.completions());  // never before getFile has returned
    const bool ended = waitFor([&] { return c.client.completions() > completions; });
    ::setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, previousHandler);
    ASSERT_TRUE(ended);

    const QMap<Ending, QByteArray> file{{Ending::Whole, body}, {Ending::NotFound, "<missing>"},
                                        {Ending::WriteRefused, body.left(int(f.sizeLimit))}};
    EXPECT_TRUE(file[f.ending] == (QFile::exists(local) ? readFile(local) : QByteArray("<missing>")));
    EXPECT_FALSE(QFile::exists(folder + "/copy.txt"));
    const auto request = [&](int from) {
        const QByteArray range = from ? "Range: bytes=" + QByteArray::number(from) + "-\r\n" : QByteArray();
        return clientRequest(c.server.port(), "/sub/big.gz", "Accept-Encoding: \r\n" + range);
    };
    QVector<QByteArray> requests;
    if (*f.folder == 0)
        requests << request(f.onDisk > 256 ? f.onDisk - 256 : 0);
    if (retried)
        requests << request(resumed);
    EXPECT_EQ(requests, c.server.requests);
    const Messages shown{{QString::fromLatin1(f.text).arg(local), retried ? 30 : 0}};
    EXPECT_EQ(*f.text ? shown : Messages(), c.client.statusMessages);
    EXPECT_EQ(f.kept, c.client.bytesOnDisk);
    if (f.ending == Ending::Whole) {
        ASSERT_FALSE(c.client.progress.isEmpty());
        EXPECT_EQ(body.size() - resumed, c.client.progress.last());
    }
    ASSERT_EQ(1, c.client.completions());
    EXPECT_EQ(f.ending == Ending::Whole ? 0 : 1, c.client.calls[0].number);  // 1: failed, the dialog counts it
    EXPECT_FALSE(c.http.isBusy());
}

const QByteArray kHalfBody = "HTTP/1.1 200 OK\r\nContent-Length: 20000\r\n\r\n" + patternBytes(20000, 3).left(1500);

INSTANTIATE_TEST_SUITE_P(
    Rows, TransferFaults,
    ::testing::Values(
        TransferFault{"CloseBeforeAnswer", 0, {""}, "Download: Error UnexpectedClose", {}},
        TransferFault{"InvalidStatusLine", 0, {"HTTQ/1.1 2x0 OK\r\nContent-Length: 5\r\n\r\nhello"},
                      "Download: Error InvalidResponseHeader", {}},
        // 1500 of 20000 bytes arrive: 1244 are kept.
        TransferFault{"DroppedMidBody", 0, {kHalfBody}, "Download: Error WrongContentLength", {1244}},
        TransferFault{"SilentAfterTheRequest", 0, silentReply(), "Download: Error IdleTimeout", {}},
        TransferFault{"SilentMidBody", 0, {kHalfBody, false}, "Download: Error IdleTimeout", {1244}},
        // Kept open, so that only the length ends the body: what follows it is dropped.
        TransferFault{"BytesAfterTheBody", 0, {okReply(patternBytes(20000, 3)).bytes + "and more", false}, "", {}},
        // Up to 256 bytes on disk are all fetched again; of 257 one is kept.
        TransferFault{"OnlyATornTail", 256, okReply(patternBytes(20000, 3)), "", {}},
        TransferFault{"OneByteKept", 257, restFrom(patternBytes(20000, 3), 1), "", {1}},
        // 1300 bytes on disk, 1044 kept.
        TransferFault{"WholeFileForARangedRequest", 1300, okReply(patternBytes(20000, 3)), "", {1044, -1044}},
        TransferFault{"PartialWithoutContentRange", 1300, okReply(patternBytes(20000, 3).mid(1044), 206),
                      "Download: Error ResumeRefused", {1044, 788}},
        TransferFault{"RangeNotSatisfiable", 1300, okReply("", 416, "Content-Range: bytes */20000\r\n"),
                      "Download: Error ResumeRefused", {1044, 788}},
        TransferFault{"ErrorPage", 1300, okReply("<html>busy</html>", 503), "Download: Error ResumeRefused",
                      {1044, 788}},
        TransferFault{"NotFound", 0, okReply("<html>gone</html>", 404), "", {}, Ending::NotFound},
        TransferFault{"NotFoundWithABrokenLength", 0,
                      {"HTTP/1.1 404 Not Found\r\nContent-Length: 12ab\r\n\r\n<html>gone</html>"}, "", {},
                      Ending::NotFound},
        TransferFault{"NotFoundCutShort", 0, {"HTTP/1.1 404 Not Found\r\nContent-Length: 500\r\n\r\n<html>cut"}, "",
                      {}, Ending::NotFound},
        // EFBIG, as a full disk fails with ENOSPC.
        TransferFault{"FolderRefusesTheBytes", 0, okReply(patternBytes(20000, 3)),
                      "Download: Error writing %1: File too large", {}, Ending::WriteRefused, "", 4096},
        TransferFault{"FolderMissing", 0, okReply(""), "Download: Error writing %1: No such file or directory", {},
                      Ending::NotFound, "missing"}),
    [](const ::testing::TestParamInfo<TransferFault>& info) { return std::string(info.param.name); });

// Off-line nothing is sent and no file made, and an aborted request reports
// nothing. A refused connection shows for the product's retry interval; an
// unknown host stays in the status bar (0) until something replaces it. Both
// are retried, and without a window nothing is shown.
TEST(DownloadHttp, UnansweredRequestsReportNothingAndOnlyUnreachableServersShow)
{
    ClientOn c({silentReply()});
    EXPECT_EQ(-1, c.http.abort());  // nothing to abort yet
    c.client.offline = true;
    c.http.getFileSize(QStringLiteral("/a.txt"));
    c.http.getFile(QStringLiteral("/a.txt"), c.dir.path(), 0, 0, 0, false);
    waitFor([] { return false; }, 200);
    EXPECT_EQ(0, c.server.connections);
    EXPECT_FALSE(QFile::exists(c.local("a.txt")));
    c.client.offline = false;
    c.http.getFileSize(QStringLiteral("/a.txt"));
    ASSERT_TRUE(waitFor([&] { return c.server.requests.size() == 1; }));
    EXPECT_EQ(0, c.http.abort());

    const quint16 closed = freeLoopbackPort();
    ClientOn refused({}, QStringLiteral("http://127.0.0.1:%1/Win32").arg(closed));
    refused.http.setRetryIntervalForTest(CDownloadHttp::kRetryInterval);
    refused.http.getFile(QStringLiteral("/r.txt"), refused.dir.path(), 0, 0, 0, false);
    // An invalid name is refused before any lookup leaves the machine.
    CDownloadHttp unknown(&refused.client, QStringLiteral("http://bad..name/Win32"));
    unknown.setRetryIntervalForTest(10);
    unknown.getFile(QStringLiteral("/u.txt"), refused.dir.path(), 0, 0, 0, false);
    ClientOn hidden({}, QStringLiteral("http://127.0.0.1:%1/Win32").arg(closed));
    hidden.client.window = false;
    hidden.http.getFile(QStringLiteral("/r.txt"), hidden.dir.path(), 0, 0, 0, false);
    const auto shown = [&](const char* error) {
        QVector<int> timeouts;
        for (const auto& message : refused.client.statusMessages)
            if (message.first == QLatin1String("Download: Error ") + QLatin1String(error))
                timeouts << message.second;
        return timeouts;
    };
    ASSERT_TRUE(waitFor([&] { return shown("HostNotFound").size() >= 2 && !shown("ConnectionRefused").isEmpty(); }));
    waitFor([] { return false; }, 300);  // time for anything the others would report
    EXPECT_EQ(QVector<int>(shown("HostNotFound").size(), 0), shown("HostNotFound"));
    EXPECT_EQ(QVector<int>{20000}, shown("ConnectionRefused"));
    for (ClientOn* client : {&c, &refused, &hidden})
        EXPECT_EQ(0, client->client.completions());
    EXPECT_TRUE(refused.http.isBusy() && hidden.http.isBusy());
    EXPECT_TRUE(c.client.statusMessages.isEmpty() && hidden.client.statusMessages.isEmpty());
}

TEST(ResumeAnswer, OnlyTheRestOfTheSameFileIsAppended)
{
    using R = ResumeAnswer;
    const struct {
        int status;
        const char* contentRange;
        ResumeAnswer expected;
    } rows[] = {
        // TransferFaults has a 206 without a range, a 416, an error page and a 200.
        {206, "bytes 44-4999/5000", R::Append}, {206, "BYTES 44-4999/*", R::Append},
        {206, "bytes 0-4999/5000", R::Refuse},  {206, "bytes 45-4999/5000", R::Refuse},
        {206, "bytes 44-43/5000", R::Refuse},  // an empty range
        {206, "bytes=44-4999/5000", R::Refuse}, {206, "bytes 44-4999", R::Refuse},
        {200, "bytes 44-4999/5000", R::Restart}, {302, "", R::Refuse}};
    for (const auto& row : rows)
        EXPECT_EQ(row.expected, classifyResumeAnswer(row.status, QString::fromLatin1(row.contentRange), 44))
            << row.status << " " << row.contentRange;
}

TEST(IdleTimeout, TheLimitComesFromTheSettingsFile)
{
    QTemporaryDir dir;
    const QString settings = dir.filePath(QStringLiteral("download.cfg"));
    const struct {
        const char* text;  // the file's content; null: no file
        int seconds;
    } rows[] = {{nullptr, 60},
                {"[Address]\r\nPath=h\r\n", 60},
                {"[Network]\r\nIdleTimeout=5\r\n", 5},
                {"[Network]\r\nIdleTimeout=12s\r\n", 12},  // read as strtol reads: up to the first letter
                {"[Network]\r\nIdleTimeout=0\r\n", 60},
                {"[Network]\r\nIdleTimeout=-3\r\n", 60},
                {"[Network]\r\nIdleTimeout=soon\r\n", 60},
                {"[Network]\r\nIdleTimeout=86401\r\n", 60}};
    for (const auto& row : rows) {
        QFile::remove(settings);
        if (row.text)
            writeText(settings, row.text);
        EXPECT_EQ(row.seconds, readIdleTimeoutSeconds(settings, 60)) << (row.text ? row.text : "no file");
    }
}
