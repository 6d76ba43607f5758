// The HTTP connection against a scripted loopback server: what it makes of
// well-formed and broken replies, aborts, and where the body goes. The bytes
// of the client's own requests, and how a refused connection or an unknown
// host are named, show through the HTTP file client and are checked there.
// Then its response parser under random input: well-formed responses cut into
// random pieces must give back exactly their body; mutated ones must end in a
// clean result without reading past what they were given; and its limits.
#include <random>

#include <QBuffer>
#include <gtest/gtest.h>

#include "support/FaultServer.h"
#include "support/FileHelpers.h"
#include "support/WaitFor.h"
#include "transfer/HttpConnection.h"
#include "transfer/HttpResponseParser.h"

namespace {

CHttpRequestHeader plainGet()
{
    CHttpRequestHeader header(QStringLiteral("GET"), QStringLiteral("/file.bin"));
    header.setValue(QStringLiteral("Host"), QStringLiteral("127.0.0.1"));
    return header;
}

// One request on a fresh connection, with everything it signals recorded.
// The request starts from the event loop, so signals may be connected after.
struct Exchange {
    CHttpConnection connection;
    QBuffer device;
    int done = 0, status = 0, progressCalls = 0, lastTotal = 0, readyReads = 0;
    bool doneError = false, deviceMatchesProgress = true;

    explicit Exchange(quint16 port, const CHttpRequestHeader& header = plainGet(), bool toDevice = true)
    {
        device.open(QIODevice::WriteOnly);
        QObject::connect(&connection, &CHttpConnection::responseHeaderReceived,
                         [this](const CHttpResponseHeader& h) { status = h.statusCode(); });
        QObject::connect(&connection, &CHttpConnection::done, [this](bool error) {
            ++done;
            doneError = error;
        });
        QObject::connect(&connection, &CHttpConnection::dataReadProgress, [this](int read, int total) {
            ++progressCalls;
            deviceMatchesProgress = deviceMatchesProgress && device.size() == read;
            lastTotal = total;
        });
        QObject::connect(&connection, &CHttpConnection::readyRead,
                         [this](const CHttpResponseHeader&) { ++readyReads; });
        connection.setHost(QStringLiteral("127.0.0.1"), port);
        connection.request(header, QByteArray(), toDevice ? &device : nullptr);
    }

    // Waits for done(), then a little longer: a second done() would arrive
    // from the loop by then, if ever.
    void finish()
    {
        waitFor([this] { return done > 0; });
        waitFor([] { return false; }, 50);
    }
};

// The body every well-formed reply of the table carries.
const QByteArray kBody = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";

// The body in three chunks, with an extension and a trailer.
QByteArray chunkedReply()
{
    return "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
           "a;name=value\r\n" + kBody.left(10) + "\r\n"
           "1A\r\n" + kBody.mid(10, 26) + "\r\n"
           + QByteArray::number(kBody.size() - 36, 16) + "\r\n" + kBody.mid(36) + "\r\n"
           "0\r\nX-Trailer: yes\r\n\r\n";
}

struct ReplyCase {
    const char* name;
    ScriptedReply reply;
    int error;
    int status;       // status seen in responseHeaderReceived, 0 for none
    QByteArray body;  // what reached the device
};

}  // namespace

// The header keeps a field set again (in any case) in its first place.
TEST(HttpConnection, SendsTheGivenHeaderWithAFieldSetAgainInItsFirstPlace)
{
    FaultServer server({okReply("x")});
    CHttpRequestHeader header(QStringLiteral("GET"), QStringLiteral("http://127.0.0.1/a/b.txt?x=1"));
    header.setValue(QStringLiteral("Accept"), QStringLiteral("*/*"));
    header.setValue(QStringLiteral("Accept-Encodinlg"), QString());
    header.setValue(QStringLiteral("accept"), QStringLiteral("text/plain"));
    Exchange exchange(server.port(), header);
    exchange.finish();
    EXPECT_EQ(QVector<QByteArray>{"GET http://127.0.0.1/a/b.txt?x=1 HTTP/1.1\r\n"
                                  "Accept: text/plain\r\n"
                                  "Accept-Encodinlg: \r\n\r\n"},
              server.requests);
    EXPECT_EQ(QByteArray("x"), exchange.device.data());
}

class HttpConnectionReplies : public ::testing::TestWithParam<ReplyCase> {};

TEST_P(HttpConnectionReplies, EndOnceWithTheRightErrorAndBody)
{
    const ReplyCase& c = GetParam();
    FaultServer server({c.reply});
    Exchange exchange(server.port());
    exchange.finish();
    EXPECT_EQ(1, exchange.done);
    EXPECT_EQ(c.error, exchange.connection.error());
    EXPECT_EQ(c.error != CHttpConnection::NoError, exchange.doneError);
    EXPECT_EQ(c.status, exchange.status);
    EXPECT_EQ(c.body, exchange.device.data());
    EXPECT_TRUE(exchange.deviceMatchesProgress);
}

// A cut body, a bad status line and a close before the answer show in the
// HTTP file client's texts and retries, and chunked bodies in readAll below.
INSTANTIATE_TEST_SUITE_P(
    WellFormedAndBroken, HttpConnectionReplies,
    ::testing::Values(
        ReplyCase{"NoContentLength", {"HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + kBody},
                  CHttpConnection::NoError, 200, kBody},
        ReplyCase{"ProxyAuthentication", okReply("auth page", 407),
                  CHttpConnection::ProxyAuthenticationRequiredError, 407, "auth page"},
        ReplyCase{"Authentication", okReply("login", 401), CHttpConnection::AuthenticationRequiredError,
                  401, "login"},
        // The header is seen (a size probe reads its status and fields); the
        // body cannot be delimited.
        ReplyCase{"NegativeLength", {"HTTP/1.1 200 OK\r\nContent-Length: -5\r\n\r\n" + kBody},
                  CHttpConnection::WrongContentLength, 200, ""},
        ReplyCase{"NonNumericLength", {"HTTP/1.1 200 OK\r\nContent-Length: 12ab\r\n\r\n" + kBody},
                  CHttpConnection::WrongContentLength, 200, ""},
        // Kept open, so that only the length can end the body; what follows
        // the body is dropped.
        ReplyCase{"BodyLongerThanLength", {"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n" + kBody, false},
                  CHttpConnection::NoError, 200, kBody.left(10)}),
    [](const ::testing::TestParamInfo<ReplyCase>& info) { return std::string(info.param.name); });

// Whether the server never answers or the caller aborts from the header
// signal, done() comes once, from the loop, and no body is written.
TEST(HttpConnection, AbortEndsOnceWithAbortedAndWritesNoBody)
{
    FaultServer silent({silentReply()});
    Exchange waiting(silent.port());
    ASSERT_TRUE(waitFor([&] { return silent.requests.size() == 1; }));
    waiting.connection.abort();
    waiting.connection.abort();
    EXPECT_EQ(0, waiting.done);
    waiting.finish();
    EXPECT_EQ(1, waiting.done);
    EXPECT_TRUE(waiting.doneError);
    EXPECT_EQ(CHttpConnection::Aborted, waiting.connection.error());

    FaultServer answering({okReply(QByteArray(5000, 'b'))});
    Exchange fromHeader(answering.port());
    QObject::connect(&fromHeader.connection, &CHttpConnection::responseHeaderReceived,
                     [&](const CHttpResponseHeader&) { fromHeader.connection.abort(); });
    fromHeader.finish();
    EXPECT_EQ(CHttpConnection::Aborted, fromHeader.connection.error());
    EXPECT_EQ(0, fromHeader.device.size());
}

TEST(HttpConnection, BodyReachesTheDeviceAsItArrivesOrIsKeptForReadAll)
{
    const QByteArray body = patternBytes(3 * 1024 * 1024);
    FaultServer server({okReply(body)});
    Exchange exchange(server.port());
    exchange.finish();
    EXPECT_EQ(CHttpConnection::NoError, exchange.connection.error());
    EXPECT_GT(exchange.progressCalls, 1);
    EXPECT_TRUE(exchange.deviceMatchesProgress);
    EXPECT_EQ(body.size(), exchange.lastTotal);
    EXPECT_TRUE(exchange.device.data() == body);

    FaultServer chunked({{chunkedReply()}});
    Exchange withoutDevice(chunked.port(), plainGet(), false);
    withoutDevice.finish();
    EXPECT_GT(withoutDevice.readyReads, 0);
    EXPECT_EQ(kBody, withoutDevice.connection.readAll());
}

namespace {

class CollectingSink : public CHttpResponseSink {
public:
    bool onResponseHeader(const CHttpResponseHeader&) override { return ++headers > 0; }
    bool onBodyData(const char* data, qint64 size) override
    {
        body.append(data, int(size));
        return true;
    }
    int headers = 0;
    QByteArray body;
};

struct Generated {
    QByteArray bytes;
    QByteArray body;
    bool delimitedByClose = false;
};

Generated generate(std::mt19937& rng)
{
    auto pick = [&](int n) { return int(rng() % unsigned(n)); };
    Generated g;
    const int bodySize = pick(4) == 0 ? 0 : pick(3000);
    for (int i = 0; i < bodySize; ++i)
        g.body.append(char(rng()));
    static const int statuses[] = {200, 206, 302, 404, 416, 500};
    g.bytes = "HTTP/1." + QByteArray::number(pick(2)) + " "
        + QByteArray::number(statuses[pick(6)]) + " Reason text\r\n";
    if (pick(5) == 0)
        g.bytes = "HTTP/1.1 100 Continue\r\n\r\n" + g.bytes;
    const int extra = pick(6);
    for (int i = 0; i < extra; ++i) {
        g.bytes += "X-Field-" + QByteArray::number(i) + ":" + QByteArray(pick(3), ' ')
            + QByteArray(pick(40), 'v') + (pick(2) ? "\r\n" : "\n");
        if (pick(8) == 0)
            g.bytes += " folded continuation\r\n";
    }
    switch (pick(3)) {
    case 0:
        g.bytes += "Content-Length: " + QByteArray::number(g.body.size()) + "\r\n\r\n" + g.body;
        break;
    case 1: {
        g.bytes += "Transfer-Encoding: chunked\r\n\r\n";
        int at = 0;
        while (at < g.body.size()) {
            const int n = qMin(g.body.size() - at, 1 + pick(700));
            g.bytes += QByteArray::number(n, 16) + (pick(3) == 0 ? ";ext=1" : "") + "\r\n"
                + g.body.mid(at, n) + "\r\n";
            at += n;
        }
        g.bytes += "0\r\n";
        if (pick(3) == 0)
            g.bytes += "Trailer-Field: x\r\n";
        g.bytes += "\r\n";
        break;
    }
    default:
        g.bytes += "\r\n" + g.body;
        g.delimitedByClose = true;
        break;
    }
    return g;
}

// Feeds the bytes in random pieces; returns the last result.
CHttpResponseParser::Result feedInPieces(CHttpResponseParser& parser, const QByteArray& bytes,
                                         CollectingSink& sink, std::mt19937& rng)
{
    CHttpResponseParser::Result result = CHttpResponseParser::NeedMore;
    int at = 0;
    while (at < bytes.size()) {
        const int n = qMin(bytes.size() - at, 1 + int(rng() % 257u));
        // A heap copy of each piece, so that AddressSanitizer sees any read
        // past its end.
        QByteArray piece(bytes.constData() + at, n);
        piece.detach();
        result = parser.feed(piece.constData(), n, sink);
        at += n;
        if (result == CHttpResponseParser::Failed)
            break;
    }
    return result;
}

}  // namespace

TEST(HttpResponseParserRandom, WellFormedResponsesGiveBackTheirBodyInAnyCutting)
{
    std::mt19937 rng(20240611u);
    for (int i = 0; i < 12000; ++i) {
        const Generated g = generate(rng);
        CHttpResponseParser parser;
        CollectingSink sink;
        CHttpResponseParser::Result result = feedInPieces(parser, g.bytes, sink, rng);
        if (g.delimitedByClose)
            result = parser.finishAtClose();
        ASSERT_EQ(CHttpResponseParser::Complete, result) << "response " << i << ": "
                                                         << parser.errorString().toStdString();
        ASSERT_EQ(1, sink.headers) << "response " << i;
        ASSERT_TRUE(sink.body == g.body) << "response " << i;
    }
}

TEST(HttpResponseParserRandom, MutatedResponsesEndCleanly)
{
    std::mt19937 rng(77u);
    int failures = 0;
    for (int i = 0; i < 12000; ++i) {
        Generated g = generate(rng);
        const int mutations = 1 + int(rng() % 4u);
        for (int m = 0; m < mutations && !g.bytes.isEmpty(); ++m) {
            const int at = int(rng() % unsigned(g.bytes.size()));
            switch (rng() % 4u) {
            case 0: g.bytes[at] = char(rng()); break;
            case 1: g.bytes.remove(at, 1 + int(rng() % 8u)); break;
            case 2: g.bytes.insert(at, QByteArray(1 + int(rng() % 8u), char(rng()))); break;
            default: g.bytes.truncate(at); break;
            }
        }
        CHttpResponseParser parser;
        CollectingSink sink;
        CHttpResponseParser::Result result = feedInPieces(parser, g.bytes, sink, rng);
        if (result == CHttpResponseParser::NeedMore)
            result = parser.finishAtClose();
        ASSERT_TRUE(result == CHttpResponseParser::Complete || result == CHttpResponseParser::Failed)
            << "response " << i;
        if (result == CHttpResponseParser::Failed) {
            ++failures;
            const int error = parser.error();
            ASSERT_TRUE(error == CHttpConnection::InvalidResponseHeader
                        || error == CHttpConnection::WrongContentLength
                        || error == CHttpConnection::UnexpectedClose)
                << "response " << i << " error " << error;
            ASSERT_FALSE(parser.errorString().isEmpty());
        }
        // The body can never hold more than the response carried.
        ASSERT_LE(sink.body.size(), g.bytes.size()) << "response " << i;
    }
    // Mutation must actually reach the error paths.
    EXPECT_GT(failures, 1000);
}

TEST(HttpResponseParser, LimitsHoldJustInsideAndFailJustPast)
{
    using P = CHttpResponseParser;
    const QByteArray head = "HTTP/1.1 200 OK\r\n", empty = "Content-Length: 0\r\n\r\n";
    const QByteArray chunked = head + "Transfer-Encoding: chunked\r\n\r\n";
    QByteArray fields;  // with the Content-Length field, the most a header may have
    for (int i = 1; i < P::kMaxHeaderCount; ++i)
        fields += "X-" + QByteArray::number(i) + ": v\r\n";
    // Fifteen hex digits are a chunk size; sixteen would overflow the arithmetic.
    const struct { const char* name; QByteArray bytes; P::Result result; } cases[] = {
        {"longest line", head + "X: " + QByteArray(P::kMaxLineLength - 3, 'a') + "\r\n" + empty, P::Complete},
        {"line one byte longer", head + "X: " + QByteArray(P::kMaxLineLength - 2, 'a') + "\r\n" + empty, P::Failed},
        {"most fields", head + fields + empty, P::Complete},
        {"one field more", head + fields + "X-0: v\r\n" + empty, P::Failed},
        {"fifteen hex digits", chunked + "fffffffffffffff\r\nab", P::NeedMore},
        {"sixteen hex digits", chunked + "1000000000000000\r\nab", P::Failed}};
    for (const auto& c : cases) {
        P parser;
        CollectingSink sink;
        EXPECT_EQ(c.result, parser.feed(c.bytes.constData(), c.bytes.size(), sink)) << c.name;
        if (c.result == P::Failed) {
            EXPECT_EQ(int(CHttpConnection::InvalidResponseHeader), parser.error()) << c.name;
        }
    }
}

TEST(HttpResponseParser, HugeLineIsRefusedWithoutHoldingIt)
{
    // A 1 MB line fed in 4 KB pieces fails as soon as it passes the limit,
    // long before the whole line is in.
    CHttpResponseParser parser;
    CollectingSink sink;
    QByteArray piece(4096, 'x');
    int fed = 0;
    CHttpResponseParser::Result r = parser.feed("HTTP/1.1 200 OK\r\nX: ", 21, sink);
    while (r == CHttpResponseParser::NeedMore && fed < 1024 * 1024) {
        r = parser.feed(piece.constData(), piece.size(), sink);
        fed += piece.size();
    }
    EXPECT_EQ(CHttpResponseParser::Failed, r);
    EXPECT_LE(fed, CHttpResponseParser::kMaxLineLength + piece.size());
}
