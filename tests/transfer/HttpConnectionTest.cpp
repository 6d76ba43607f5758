// The HTTP connection against a scripted loopback server: the exact bytes it
// sends, and what it makes of well-formed and broken replies.
#include <QBuffer>
#include <QTcpServer>
#include <gtest/gtest.h>

#include "support/FaultServer.h"
#include "support/WaitFor.h"
#include "transfer/HttpConnection.h"

namespace {

struct Outcome {
    int doneCount = 0;
    bool doneError = false;
    int error = -1;
    int status = 0;
    QByteArray body;
};

// Runs one GET against the server on the given port and waits for done().
Outcome runRequest(quint16 port, const CHttpRequestHeader& header)
{
    Outcome outcome;
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    CHttpConnection connection;
    QObject::connect(&connection, &CHttpConnection::responseHeaderReceived,
                     [&](const CHttpResponseHeader& h) { outcome.status = h.statusCode(); });
    QObject::connect(&connection, &CHttpConnection::done, [&](bool error) {
        ++outcome.doneCount;
        outcome.doneError = error;
        outcome.error = connection.error();
    });
    connection.setHost(QStringLiteral("127.0.0.1"), port);
    connection.request(header, QByteArray(), &buffer);
    waitFor([&] { return outcome.doneCount > 0; });
    // A second done() would arrive from the loop now, if ever.
    waitFor([] { return false; }, 50);
    outcome.body = buffer.data();
    return outcome;
}

CHttpRequestHeader plainGet()
{
    CHttpRequestHeader header(QStringLiteral("GET"), QStringLiteral("/file.bin"));
    header.setValue(QStringLiteral("Host"), QStringLiteral("127.0.0.1"));
    return header;
}

}  // namespace

TEST(HttpConnection, SendsExactlyTheGivenHeaderInOrder)
{
    FaultServer server({okReply("x")});
    CHttpRequestHeader header(QStringLiteral("GET"), QStringLiteral("http://127.0.0.1/a/b.txt?x=1"));
    header.setValue(QStringLiteral("User-Agent"), QStringLiteral("DownloadHttp1.0.0 (1.0.0)"));
    header.setValue(QStringLiteral("Accept"), QStringLiteral("*/*"));
    header.setValue(QStringLiteral("Accept-Encodinlg"), QString());
    header.setValue(QStringLiteral("Range"), QStringLiteral("bytes"));
    header.setValue(QStringLiteral("Host"), QStringLiteral("127.0.0.1"));
    // Setting a field again keeps its place.
    header.setValue(QStringLiteral("accept"), QStringLiteral("text/plain"));

    const Outcome outcome = runRequest(server.port(), header);

    ASSERT_EQ(1, server.requests.size());
    EXPECT_EQ(QByteArray("GET http://127.0.0.1/a/b.txt?x=1 HTTP/1.1\r\n"
                         "User-Agent: DownloadHttp1.0.0 (1.0.0)\r\n"
                         "Accept: text/plain\r\n"
                         "Accept-Encodinlg: \r\n"
                         "Range: bytes\r\n"
                         "Host: 127.0.0.1\r\n\r\n"),
              server.requests[0]);
    EXPECT_EQ(1, outcome.doneCount);
    EXPECT_FALSE(outcome.doneError);
    EXPECT_EQ(QByteArray("x"), outcome.body);
}

struct FaultCase {
    const char* name;
    Fault fault;
    int error;
    int status;       // status seen in responseHeaderReceived, 0 for none
    QByteArray body;  // what reached the device
};

class HttpConnectionFaults : public ::testing::TestWithParam<FaultCase> {};

TEST_P(HttpConnectionFaults, EndsWithTheRightErrorAndBody)
{
    const FaultCase& c = GetParam();
    FaultServer server({faultReply(c.fault)});
    const Outcome outcome = runRequest(server.port(), plainGet());
    EXPECT_EQ(1, outcome.doneCount);
    EXPECT_EQ(c.error, outcome.error);
    EXPECT_EQ(c.error != CHttpConnection::NoError, outcome.doneError);
    EXPECT_EQ(c.status, outcome.status);
    EXPECT_EQ(c.body, outcome.body);
}

INSTANTIATE_TEST_SUITE_P(
    BrokenReplies, HttpConnectionFaults,
    ::testing::Values(
        FaultCase{"DropMidBody", Fault::DropMidBody, CHttpConnection::WrongContentLength, 200,
                  faultBody().left(40)},
        FaultCase{"NoContentLength", Fault::NoContentLength, CHttpConnection::NoError, 200,
                  faultBody()},
        FaultCase{"NotFound", Fault::NotFound, CHttpConnection::NoError, 404,
                  "<html>not found</html>"},
        FaultCase{"InvalidStatusLine", Fault::InvalidStatusLine,
                  CHttpConnection::InvalidResponseHeader, 0, ""},
        FaultCase{"Chunked", Fault::Chunked, CHttpConnection::NoError, 200, faultBody()},
        FaultCase{"NegativeLength", Fault::NegativeLength, CHttpConnection::WrongContentLength, 0,
                  ""},
        FaultCase{"NonNumericLength", Fault::NonNumericLength,
                  CHttpConnection::WrongContentLength, 0, ""},
        FaultCase{"OverflowingChunk", Fault::OverflowingChunk,
                  CHttpConnection::InvalidResponseHeader, 200, ""},
        FaultCase{"BodyLongerThanLength", Fault::BodyLongerThanLength,
                  CHttpConnection::WrongContentLength, 200, faultBody().left(10)},
        FaultCase{"HugeHeaderLine", Fault::HugeHeaderLine, CHttpConnection::InvalidResponseHeader,
                  0, ""},
        FaultCase{"TenThousandHeaders", Fault::TenThousandHeaders,
                  CHttpConnection::InvalidResponseHeader, 0, ""},
        FaultCase{"CloseBeforeAnswer", Fault::CloseBeforeAnswer,
                  CHttpConnection::UnexpectedClose, 0, ""}),
    [](const ::testing::TestParamInfo<FaultCase>& info) { return std::string(info.param.name); });

TEST(HttpConnection, ReportsAuthenticationAnswersAsTheirErrors)
{
    FaultServer proxy({okReply("auth page", 407)});
    const Outcome viaProxy = runRequest(proxy.port(), plainGet());
    EXPECT_EQ(CHttpConnection::ProxyAuthenticationRequiredError, viaProxy.error);
    EXPECT_EQ(QByteArray("auth page"), viaProxy.body);

    FaultServer server({okReply("login", 401)});
    EXPECT_EQ(CHttpConnection::AuthenticationRequiredError, runRequest(server.port(), plainGet()).error);
}

TEST(HttpConnection, RefusedConnectionIsReported)
{
    quint16 closedPort;
    {
        QTcpServer probe;
        ASSERT_TRUE(probe.listen(QHostAddress::LocalHost, 0));
        closedPort = probe.serverPort();
    }
    const Outcome outcome = runRequest(closedPort, plainGet());
    EXPECT_EQ(1, outcome.doneCount);
    EXPECT_EQ(CHttpConnection::ConnectionRefused, outcome.error);
}

TEST(HttpConnection, InvalidHostNameIsNotFound)
{
    // Refused by Qt's own name check: no lookup leaves the machine.
    CHttpConnection connection;
    int done = 0;
    QObject::connect(&connection, &CHttpConnection::done, [&](bool) { ++done; });
    connection.setHost(QStringLiteral("bad..name"), 80);
    connection.request(plainGet());
    waitFor([&] { return done > 0; });
    EXPECT_EQ(CHttpConnection::HostNotFound, connection.error());
}

TEST(HttpConnection, AbortWhileTheServerNeverAnswersEndsOnceWithAborted)
{
    FaultServer server({faultReply(Fault::NeverAnswers)});
    CHttpConnection connection;
    int done = 0;
    bool doneError = false;
    QObject::connect(&connection, &CHttpConnection::done, [&](bool error) {
        ++done;
        doneError = error;
    });
    connection.setHost(QStringLiteral("127.0.0.1"), server.port());
    connection.request(plainGet());
    ASSERT_TRUE(waitFor([&] { return server.requests.size() == 1; }));
    EXPECT_EQ(0, done);
    connection.abort();
    connection.abort();
    waitFor([&] { return done > 0; });
    waitFor([] { return false; }, 50);
    EXPECT_EQ(1, done);
    EXPECT_TRUE(doneError);
    EXPECT_EQ(CHttpConnection::Aborted, connection.error());
}

TEST(HttpConnection, AbortFromTheHeaderSignalWritesNoBody)
{
    FaultServer server({okReply(QByteArray(5000, 'b'))});
    CHttpConnection connection;
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    int done = 0;
    QObject::connect(&connection, &CHttpConnection::responseHeaderReceived,
                     [&](const CHttpResponseHeader&) { connection.abort(); });
    QObject::connect(&connection, &CHttpConnection::done, [&](bool) { ++done; });
    connection.setHost(QStringLiteral("127.0.0.1"), server.port());
    connection.request(plainGet(), QByteArray(), &buffer);
    waitFor([&] { return done > 0; });
    EXPECT_EQ(CHttpConnection::Aborted, connection.error());
    EXPECT_EQ(0, buffer.size());
}

TEST(HttpConnection, BodyReachesTheDeviceAsItArrives)
{
    QByteArray body(3 * 1024 * 1024, '\0');
    for (int i = 0; i < body.size(); ++i)
        body[i] = char(i * 7 + (i >> 11));
    FaultServer server({okReply(body)});
    CHttpConnection connection;
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    int progressCalls = 0;
    bool deviceMatchesProgress = true;
    int lastTotal = 0;
    bool finished = false;
    QObject::connect(&connection, &CHttpConnection::dataReadProgress, [&](int done, int total) {
        ++progressCalls;
        deviceMatchesProgress = deviceMatchesProgress && buffer.size() == done;
        lastTotal = total;
    });
    QObject::connect(&connection, &CHttpConnection::done, [&](bool) { finished = true; });
    connection.setHost(QStringLiteral("127.0.0.1"), server.port());
    connection.request(plainGet(), QByteArray(), &buffer);
    waitFor([&] { return finished; });
    EXPECT_EQ(CHttpConnection::NoError, connection.error());
    EXPECT_GT(progressCalls, 1);
    EXPECT_TRUE(deviceMatchesProgress);
    EXPECT_EQ(body.size(), lastTotal);
    EXPECT_TRUE(buffer.data() == body);
}

TEST(HttpConnection, WithoutDeviceTheBodyIsKeptForReadAll)
{
    FaultServer server({faultReply(Fault::Chunked)});
    CHttpConnection connection;
    bool finished = false;
    int readyReads = 0;
    QObject::connect(&connection, &CHttpConnection::readyRead,
                     [&](const CHttpResponseHeader&) { ++readyReads; });
    QObject::connect(&connection, &CHttpConnection::done, [&](bool) { finished = true; });
    connection.setHost(QStringLiteral("127.0.0.1"), server.port());
    connection.request(plainGet());
    waitFor([&] { return finished; });
    EXPECT_GT(readyReads, 0);
    EXPECT_EQ(faultBody(), connection.readAll());
}
