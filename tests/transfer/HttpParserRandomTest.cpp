// The response parser under random input: well-formed responses cut into
// random pieces must give back exactly their body; mutated ones must end in a
// clean result without reading past what they were given.
#include <random>

#include <gtest/gtest.h>

#include "transfer/HttpConnection.h"
#include "transfer/HttpResponseParser.h"

namespace {

class CollectingSink : public CHttpResponseSink {
public:
    bool onResponseHeader(const CHttpResponseHeader& h) override
    {
        ++headers;
        status = h.statusCode();
        return true;
    }
    bool onBodyData(const char* data, qint64 size) override
    {
        body.append(data, int(size));
        return true;
    }
    int headers = 0;
    int status = 0;
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

TEST(HttpResponseParser, LimitsHoldJustInsideAndJustPast)
{
    auto run = [](const QByteArray& bytes) {
        CHttpResponseParser parser;
        CollectingSink sink;
        CHttpResponseParser::Result r = parser.feed(bytes.constData(), bytes.size(), sink);
        return std::make_pair(r, parser.error());
    };
    const int lineMax = CHttpResponseParser::kMaxLineLength;
    const QByteArray prefix = "X-Long: ";
    const QByteArray inside = "HTTP/1.1 200 OK\r\n" + prefix
        + QByteArray(lineMax - prefix.size(), 'a') + "\r\nContent-Length: 0\r\n\r\n";
    EXPECT_EQ(CHttpResponseParser::Complete, run(inside).first);
    const QByteArray past = "HTTP/1.1 200 OK\r\n" + prefix
        + QByteArray(lineMax - prefix.size() + 1, 'a') + "\r\nContent-Length: 0\r\n\r\n";
    EXPECT_EQ(std::make_pair(CHttpResponseParser::Failed, int(CHttpConnection::InvalidResponseHeader)),
              run(past));

    auto withFields = [](int n) {
        QByteArray bytes = "HTTP/1.1 200 OK\r\n";
        for (int i = 0; i < n - 1; ++i)
            bytes += "X-" + QByteArray::number(i) + ": v\r\n";
        return bytes + "Content-Length: 0\r\n\r\n";
    };
    EXPECT_EQ(CHttpResponseParser::Complete, run(withFields(CHttpResponseParser::kMaxHeaderCount)).first);
    EXPECT_EQ(CHttpResponseParser::Failed, run(withFields(CHttpResponseParser::kMaxHeaderCount + 1)).first);

    // Fifteen hex digits are a size; sixteen would overflow the arithmetic.
    const QByteArray big = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nfffffffffffffff\r\nab";
    EXPECT_EQ(CHttpResponseParser::NeedMore, run(big).first);
    const QByteArray over = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1000000000000000\r\nab";
    EXPECT_EQ(CHttpResponseParser::Failed, run(over).first);
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
