// The HTTP connection against a scripted loopback server: the exact bytes it
// sends, and what it makes of well-formed and broken replies. How it names a
// refused connection or an unknown host shows in the HTTP file client's
// status texts, and is checked there.
#include <QBuffer>
#include <gtest/gtest.h>

#include "support/FaultServer.h"
#include "support/FileHelpers.h"
#include "support/WaitFor.h"
#include "transfer/HttpConnection.h"

namespace {

CHttpRequestHeader plainGet()
{
    CHttpRequestHeader header(QStringLiteral("GET"), QStringLiteral("/file.bin"));
    header.setValue(QStringLiteral("Host"), QStringLiteral("127.0.0.1"));
    return header;
}

// One request on a fresh connection, with everything it signals recorded.
struct Exchange {
    CHttpConnection connection;
    QBuffer device;
    int done = 0;
    bool doneError = false;
    int status = 0;  // seen in responseHeaderReceived
    int progressCalls = 0;
    bool deviceMatchesProgress = true;
    int lastTotal = 0;
    int readyReads = 0;

    Exchange()
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
    }

    void start(quint16 port, const CHttpRequestHeader& header = plainGet(), bool toDevice = true)
    {
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

}  // namespace

// What the client's own requests look like byte for byte is checked through
// the HTTP file client; here, the rule the header keeps for a field set again.
TEST(HttpConnection, SendsTheGivenHeaderWithAFieldSetAgainInItsFirstPlace)
{
    FaultServer server({okReply("x")});
    CHttpRequestHeader header(QStringLiteral("GET"), QStringLiteral("http://127.0.0.1/a/b.txt?x=1"));
    header.setValue(QStringLiteral("Accept"), QStringLiteral("*/*"));
    header.setValue(QStringLiteral("Accept-Encodinlg"), QString());
    header.setValue(QStringLiteral("accept"), QStringLiteral("text/plain"));

    Exchange exchange;
    exchange.start(server.port(), header);
    exchange.finish();
    EXPECT_EQ(QVector<QByteArray>{"GET http://127.0.0.1/a/b.txt?x=1 HTTP/1.1\r\n"
                                  "Accept: text/plain\r\n"
                                  "Accept-Encodinlg: \r\n\r\n"},
              server.requests);
    EXPECT_EQ(QByteArray("x"), exchange.device.data());
}

namespace {

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

QByteArray tenThousandHeaders()
{
    QByteArray bytes = "HTTP/1.1 200 OK\r\n";
    for (int i = 0; i < 10000; ++i)
        bytes += "X-H" + QByteArray::number(i) + ": v\r\n";
    return bytes + "Content-Length: 3\r\n\r\nabc";
}

struct ReplyCase {
    const char* name;
    ScriptedReply reply;
    int error;
    int status;       // status seen in responseHeaderReceived, 0 for none
    QByteArray body;  // what reached the device
};

}  // namespace

class HttpConnectionReplies : public ::testing::TestWithParam<ReplyCase> {};

TEST_P(HttpConnectionReplies, EndOnceWithTheRightErrorAndBody)
{
    const ReplyCase& c = GetParam();
    FaultServer server({c.reply});
    Exchange exchange;
    exchange.start(server.port());
    exchange.finish();
    EXPECT_EQ(1, exchange.done);
    EXPECT_EQ(c.error, exchange.connection.error());
    EXPECT_EQ(c.error != CHttpConnection::NoError, exchange.doneError);
    EXPECT_EQ(c.status, exchange.status);
    EXPECT_EQ(c.body, exchange.device.data());
}

INSTANTIATE_TEST_SUITE_P(
    WellFormedAndBroken, HttpConnectionReplies,
    ::testing::Values(
        ReplyCase{"DropMidBody", {"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n" + kBody.left(40)},
                  CHttpConnection::WrongContentLength, 200, kBody.left(40)},
        ReplyCase{"NoContentLength", {"HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + kBody},
                  CHttpConnection::NoError, 200, kBody},
        ReplyCase{"NotFound", okReply("<html>not found</html>", 404), CHttpConnection::NoError, 404,
                  "<html>not found</html>"},
        ReplyCase{"ProxyAuthentication", okReply("auth page", 407),
                  CHttpConnection::ProxyAuthenticationRequiredError, 407, "auth page"},
        ReplyCase{"Authentication", okReply("login", 401), CHttpConnection::AuthenticationRequiredError,
                  401, "login"},
        ReplyCase{"InvalidStatusLine", {"HTTQ/1.1 2x0 OK\r\nContent-Length: 5\r\n\r\nhello"},
                  CHttpConnection::InvalidResponseHeader, 0, ""},
        ReplyCase{"Chunked", {chunkedReply()}, CHttpConnection::NoError, 200, kBody},
        // The header is seen (a size probe reads its status and fields); the
        // body cannot be delimited.
        ReplyCase{"NegativeLength", {"HTTP/1.1 200 OK\r\nContent-Length: -5\r\n\r\n" + kBody},
                  CHttpConnection::WrongContentLength, 200, ""},
        ReplyCase{"NonNumericLength", {"HTTP/1.1 200 OK\r\nContent-Length: 12ab\r\n\r\n" + kBody},
                  CHttpConnection::WrongContentLength, 200, ""},
        ReplyCase{"OverflowingChunk",
                  {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nfffffffffffffffffff1\r\nabc"},
                  CHttpConnection::InvalidResponseHeader, 200, ""},
        // Kept open, so that only the length can end the body; what follows
        // the body is dropped.
        ReplyCase{"BodyLongerThanLength", {"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n" + kBody, false},
                  CHttpConnection::NoError, 200, kBody.left(10)},
        ReplyCase{"HugeHeaderLine",
                  {"HTTP/1.1 200 OK\r\nX-Big: " + QByteArray(1024 * 1024, 'x')
                   + "\r\nContent-Length: 3\r\n\r\nabc"},
                  CHttpConnection::InvalidResponseHeader, 0, ""},
        ReplyCase{"TenThousandHeaders", {tenThousandHeaders()}, CHttpConnection::InvalidResponseHeader,
                  0, ""},
        ReplyCase{"CloseBeforeAnswer", {""}, CHttpConnection::UnexpectedClose, 0, ""}),
    [](const ::testing::TestParamInfo<ReplyCase>& info) { return std::string(info.param.name); });

TEST(HttpConnection, AbortWhileTheServerNeverAnswersEndsOnceWithAborted)
{
    FaultServer server({silentReply()});
    Exchange exchange;
    exchange.start(server.port());
    ASSERT_TRUE(waitFor([&] { return server.requests.size() == 1; }));
    EXPECT_EQ(0, exchange.done);
    exchange.connection.abort();
    exchange.connection.abort();
    exchange.finish();
    EXPECT_EQ(1, exchange.done);
    EXPECT_TRUE(exchange.doneError);
    EXPECT_EQ(CHttpConnection::Aborted, exchange.connection.error());
}

TEST(HttpConnection, AbortFromTheHeaderSignalWritesNoBody)
{
    FaultServer server({okReply(QByteArray(5000, 'b'))});
    Exchange exchange;
    QObject::connect(&exchange.connection, &CHttpConnection::responseHeaderReceived,
                     [&](const CHttpResponseHeader&) { exchange.connection.abort(); });
    exchange.start(server.port());
    exchange.finish();
    EXPECT_EQ(CHttpConnection::Aborted, exchange.connection.error());
    EXPECT_EQ(0, exchange.device.size());
}

TEST(HttpConnection, BodyReachesTheDeviceAsItArrives)
{
    const QByteArray body = patternBytes(3 * 1024 * 1024);
    FaultServer server({okReply(body)});
    Exchange exchange;
    exchange.start(server.port());
    exchange.finish();
    EXPECT_EQ(CHttpConnection::NoError, exchange.connection.error());
    EXPECT_GT(exchange.progressCalls, 1);
    EXPECT_TRUE(exchange.deviceMatchesProgress);
    EXPECT_EQ(body.size(), exchange.lastTotal);
    EXPECT_TRUE(exchange.device.data() == body);
}

TEST(HttpConnection, WithoutDeviceTheBodyIsKeptForReadAll)
{
    FaultServer server({{chunkedReply()}});
    Exchange exchange;
    exchange.start(server.port(), plainGet(), false);
    exchange.finish();
    EXPECT_GT(exchange.readyReads, 0);
    EXPECT_EQ(kBody, exchange.connection.readAll());
}
