// The HTTP response parser: well-formed responses cut into random pieces
// give back exactly their body, mutated ones end cleanly without reading past
// what they were given, and its limits hold. How the connection acts on its
// results shows through the file client (DownloadHttpTest.cpp).
#include <random>

#include <gtest/gtest.h>

#include "transfer/HttpConnection.h"
#include "transfer/HttpResponseParser.h"

namespace {

class CollectingSink : public CHttpResponseSink {
public:
    bool onResponseHeader(const CHttpResponseHeader&) override { return ++headers > 0; }
    bool onBodyData(const char* data, qint64 size) override { return body.append(data, int(size)), true; }
    int headers = 0;
    QByteArray body;
};

struct Generated {
    QByteArray bytes, body;
};

// A well-formed response: any status, a 100 Continue before it, extra
// (folded) fields, and a body by length, in chunks or up to the close.
Generated generate(std::mt19937& rng)
{
    auto pick = [&](int n) { return int(rng() % unsigned(n)); };
    Generated g;
    const int bodySize = pick(4) == 0 ? 0 : pick(3000);
    for (int i = 0; i < bodySize; ++i)
        g.body.append(char(rng()));
    static const int statuses[] = {200, 206, 302, 404, 416, 500};
    g.bytes = (pick(5) == 0 ? "HTTP/1.1 100 Continue\r\n\r\n" : "") + QByteArray("HTTP/1.")
        + QByteArray::number(pick(2)) + " " + QByteArray::number(statuses[pick(6)]) + " Reason text\r\n";
    for (int i = 0, extra = pick(6); i < extra; ++i)
        g.bytes += "X-Field-" + QByteArray::number(i) + ":" + QByteArray(pick(3), ' ') + QByteArray(pick(40), 'v')
            + (pick(2) ? "\r\n" : "\n") + (pick(8) == 0 ? " folded continuation\r\n" : "");
    switch (pick(3)) {
    case 0:
        g.bytes += "Content-Length: " + QByteArray::number(g.body.size()) + "\r\n\r\n" + g.body;
        break;
    case 1:
        g.bytes += "Transfer-Encoding: chunked\r\n\r\n";
        for (int at = 0, n; at < g.body.size(); at += n) {
            n = qMin(g.body.size() - at, 1 + pick(700));
            g.bytes += QByteArray::number(n, 16) + (pick(3) == 0 ? ";ext=1" : "") + "\r\n" + g.body.mid(at, n) + "\r\n";
        }
        g.bytes += QByteArray("0\r\n") + (pick(3) == 0 ? "Trailer-Field: x\r\n" : "") + "\r\n";
        break;
    default:
        g.bytes += "\r\n" + g.body;
    }
    return g;
}

// Feeds the bytes in random pieces, then the close if more is wanted.
CHttpResponseParser::Result feedInPieces(CHttpResponseParser& parser, const QByteArray& bytes, CollectingSink& sink,
                                         std::mt19937& rng)
{
    CHttpResponseParser::Result result = CHttpResponseParser::NeedMore;
    for (int at = 0, n; at < bytes.size() && result != CHttpResponseParser::Failed; at += n) {
        n = qMin(bytes.size() - at, 1 + int(rng() % 257u));
        // A heap copy of each piece, so that AddressSanitizer sees any read
        // past its end.
        QByteArray piece(bytes.constData() + at, n);
        piece.detach();
        result = parser.feed(piece.constData(), n, sink);
    }
    return result == CHttpResponseParser::NeedMore ? parser.finishAtClose() : result;
}

}  // namespace

TEST(HttpResponseParserRandom, WellFormedGiveBackTheirBodyAndMutatedEndCleanly)
{
    std::mt19937 rng(20240611u);
    int failures = 0;
    for (int i = 0; i < 12000; ++i) {
        Generated g = generate(rng);
        CHttpResponseParser parser;
        CollectingSink sink;
        ASSERT_EQ(CHttpResponseParser::Complete, feedInPieces(parser, g.bytes, sink, rng))
            << i << ": " << parser.errorString().toStdString();
        ASSERT_EQ(1, sink.headers) << "response " << i;
        ASSERT_TRUE(sink.body == g.body) << "response " << i;

        for (int m = 0, mutations = 1 + int(rng() % 4u); m < mutations && !g.bytes.isEmpty(); ++m) {
            const int at = int(rng() % unsigned(g.bytes.size()));
            switch (rng() % 4u) {
            case 0: g.bytes[at] = char(rng()); break;
            case 1: g.bytes.remove(at, 1 + int(rng() % 8u)); break;
            case 2: g.bytes.insert(at, QByteArray(1 + int(rng() % 8u), char(rng()))); break;
            default: g.bytes.truncate(at); break;
            }
        }
        CHttpResponseParser mutated;
        CollectingSink rest;
        const CHttpResponseParser::Result result = feedInPieces(mutated, g.bytes, rest, rng);
        ASSERT_TRUE(result == CHttpResponseParser::Complete || result == CHttpResponseParser::Failed) << i;
        if (result == CHttpResponseParser::Failed) {
            ++failures;
            const int error = mutated.error();
            ASSERT_TRUE(error == CHttpConnection::InvalidResponseHeader || error == CHttpConnection::WrongContentLength
                        || error == CHttpConnection::UnexpectedClose)
                << "response " << i << " error " << error;
            ASSERT_FALSE(mutated.errorString().isEmpty());
        }
        ASSERT_LE(rest.body.size(), g.bytes.size()) << "response " << i;
    }
    // Mutation must actually reach the error paths.
    EXPECT_GT(failures, 1000);
}

// The limits hold just inside and fail just past; a huge line fed in pieces
// fails as soon as it passes the limit, long before the whole line is in.
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
        EXPECT_EQ(c.result == P::Failed ? int(CHttpConnection::InvalidResponseHeader) : 0, parser.error()) << c.name;
    }

    P parser;
    CollectingSink sink;
    const QByteArray piece(4096, 'x');
    int fed = 0;
    P::Result r = parser.feed("HTTP/1.1 200 OK\r\nX: ", 21, sink);
    for (; r == P::NeedMore && fed < 1024 * 1024; fed += piece.size())
        r = parser.feed(piece.constData(), piece.size(), sink);
    EXPECT_EQ(P::Failed, r);
    EXPECT_LE(fed, P::kMaxLineLength + piece.size());
}
