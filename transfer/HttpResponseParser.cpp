#include "transfer/HttpResponseParser.h"

#include <cstring>

#include "transfer/HttpConnection.h"

namespace {

bool isDigits(const QByteArray& text)
{
    if (text.isEmpty())
        return false;
    for (char c : text)
        if (c < '0' || c > '9')
            return false;
    return true;
}

// A decimal Content-Length; -1 for anything that is not a plain non-negative
// number small enough for a file size.
qint64 parseContentLength(const QByteArray& raw)
{
    const QByteArray text = raw.trimmed();
    if (!isDigits(text) || text.size() > 18)
        return -1;
    return text.toLongLong();
}

}  // namespace

CHttpResponseParser::Result CHttpResponseParser::fail(int error, const QString& text)
{
    state_ = State::Failed;
    error_ = error;
    errorString_ = text;
    line_.clear();
    line_.squeeze();
    return Failed;
}

bool CHttpResponseParser::takeLine(const char*& data, const char* end, Result& failure)
{
    failure = NeedMore;
    const char* newline = static_cast<const char*>(std::memchr(data, '\n', size_t(end - data)));
    const qint64 take = newline ? (newline - data) : (end - data);
    // The limit is on the line's content; its CR does not count.
    qint64 length = line_.size() + take;
    if (newline && take > 0 && data[take - 1] == '\r')
        --length;
    else if (newline && take == 0 && line_.endsWith('\r'))
        --length;
    else if (!newline)
        --length;  // the last byte may be the CR of this line
    if (length > kMaxLineLength) {
        failure = fail(CHttpConnection::InvalidResponseHeader,
                       QStringLiteral("Response line longer than %1 bytes").arg(kMaxLineLength));
        return false;
    }
    if (state_ == State::StatusLine || state_ == State::HeaderLines || state_ == State::Trailers) {
        headerBytes_ += int(take) + (newline ? 1 : 0);
        if (headerBytes_ > kMaxHeaderBytes) {
            failure = fail(CHttpConnection::InvalidResponseHeader,
                           QStringLiteral("Response header larger than %1 bytes").arg(kMaxHeaderBytes));
            return false;
        }
    }
    line_.append(data, int(take));
    data += take;
    if (!newline)
        return false;
    ++data;  // the '\n'
    if (line_.endsWith('\r'))
        line_.chop(1);
    return true;
}

CHttpResponseParser::Result CHttpResponseParser::feed(const char* data, qint64 size,
                                                      CHttpResponseSink& sink)
{
    const char* end = data + size;
    while (true) {
        switch (state_) {
        case State::Failed:
            return Failed;
        case State::Done:
            // Bytes after a complete body (the server sent more than it said)
            // are dropped: the response is what its length says, whether the
            // extra bytes came with the last ones or a moment later, and the
            // connection is closed behind it.
            return Complete;
        case State::Body: {
            const qint64 take = qMin<qint64>(end - data, contentLength_ - bodyBytes_);
            if (take > 0) {
                bodyBytes_ += take;
                if (!sink.onBodyData(data, take))
                    return Stopped;
                data += take;
            }
            if (bodyBytes_ == contentLength_) {
                state_ = State::Done;
                continue;
            }
            return NeedMore;
        }
        case State::BodyUntilClose:
            if (data != end) {
                const qint64 take = end - data;
                bodyBytes_ += take;
                data = end;
                if (!sink.onBodyData(data - take, take))
                    return Stopped;
            }
            return NeedMore;
        case State::ChunkData: {
            const qint64 take = qMin<qint64>(end - data, chunkLeft_);
            if (take > 0) {
                chunkLeft_ -= take;
                bodyBytes_ += take;
                if (!sink.onBodyData(data, take))
                    return Stopped;
                data += take;
            }
            if (chunkLeft_ == 0) {
                state_ = State::ChunkDataEnd;
                continue;
            }
            return NeedMore;
        }
        default: {
            if (data == end)
                return NeedMore;
            Result failure;
            if (!takeLine(data, end, failure)) {
                if (failure != NeedMore)
                    return failure;
                continue;
            }
            const Result result = handleLine(sink);
            line_.clear();
            if (result != NeedMore)
                return result;
        }
        }
    }
}

CHttpResponseParser::Result CHttpResponseParser::handleLine(CHttpResponseSink& sink)
{
    switch (state_) {
    case State::StatusLine:
        return parseStatusLine();
    case State::HeaderLines:
        if (line_.isEmpty())
            return headerFinished(sink);
        return parseHeaderLine();
    case State::ChunkSize:
        return parseChunkSize();
    case State::ChunkDataEnd:
        if (!line_.isEmpty())
            return fail(CHttpConnection::InvalidResponseHeader,
                        QStringLiteral("Chunk not followed by a line end"));
        state_ = State::ChunkSize;
        return NeedMore;
    case State::Trailers:
        if (line_.isEmpty()) {
            state_ = State::Done;
            return NeedMore;
        }
        if (++trailerCount_ > kMaxHeaderCount)
            return fail(CHttpConnection::InvalidResponseHeader,
                        QStringLiteral("More than %1 trailer fields").arg(kMaxHeaderCount));
        return NeedMore;
    default:
        return NeedMore;
    }
}

// "HTTP/1.1 200 OK": the version digits, a blank, three digits, and an
// optional reason after a blank.
CHttpResponseParser::Result CHttpResponseParser::parseStatusLine()
{
    const QByteArray& l = line_;
    const bool shaped = l.size() >= 12 && l.startsWith("HTTP/") && l[5] >= '0' && l[5] <= '9'
        && l[6] == '.' && l[7] >= '0' && l[7] <= '9' && l[8] == ' '
        && isDigits(l.mid(9, 3)) && (l.size() == 12 || l[12] == ' ');
    if (!shaped)
        return fail(CHttpConnection::InvalidResponseHeader,
                    QStringLiteral("Invalid status line \"%1\"")
                        .arg(QString::fromLatin1(l.left(80))));
    header_ = CHttpResponseHeader();
    header_.setStatusLine(l.mid(9, 3).toInt(), QString::fromLatin1(l.mid(13)), l[5] - '0',
                          l[7] - '0');
    state_ = State::HeaderLines;
    return NeedMore;
}

CHttpResponseParser::Result CHttpResponseParser::parseHeaderLine()
{
    if (line_[0] == ' ' || line_[0] == '\t') {
        if (header_.count() == 0)
            return fail(CHttpConnection::InvalidResponseHeader,
                        QStringLiteral("Continuation line before any header field"));
        header_.appendToLast(QString::fromLatin1(line_.trimmed()));
        return NeedMore;
    }
    const int colon = line_.indexOf(':');
    if (colon <= 0)
        return fail(CHttpConnection::InvalidResponseHeader,
                    QStringLiteral("Header line without a name: \"%1\"")
                        .arg(QString::fromLatin1(line_.left(80))));
    if (header_.count() >= kMaxHeaderCount)
        return fail(CHttpConnection::InvalidResponseHeader,
                    QStringLiteral("More than %1 header fields").arg(kMaxHeaderCount));
    header_.addValue(QString::fromLatin1(line_.left(colon).trimmed()),
                     QString::fromLatin1(line_.mid(colon + 1).trimmed()));
    return NeedMore;
}

CHttpResponseParser::Result CHttpResponseParser::headerFinished(CHttpResponseSink& sink)
{
    const int status = header_.statusCode();
    // An interim answer (100 Continue): the real status line follows.
    if (status >= 100 && status < 200) {
        state_ = State::StatusLine;
        return NeedMore;
    }
    const bool chunked =
        header_.value(QStringLiteral("transfer-encoding")).contains(QLatin1String("chunked"),
                                                                     Qt::CaseInsensitive);
    const bool noBody = headRequest_ || status == 204 || status == 304;
    if (!chunked && header_.hasKey(QStringLiteral("content-length"))) {
        // Every Content-Length field must agree and be a plain number. The
        // header is handed on all the same, so that its status and fields
        // (a size probe, a 404) are seen; the body cannot be delimited.
        qint64 length = -1;
        for (const auto& field : header_.values()) {
            if (field.first.compare(QLatin1String("content-length"), Qt::CaseInsensitive) != 0)
                continue;
            const qint64 parsed = parseContentLength(field.second.toLatin1());
            if (parsed < 0 || (length >= 0 && parsed != length)) {
                headerDone_ = true;
                if (!sink.onResponseHeader(header_))
                    return Stopped;
                return fail(CHttpConnection::WrongContentLength,
                            QStringLiteral("Invalid Content-Length \"%1\"").arg(field.second.left(80)));
            }
            length = parsed;
        }
        contentLength_ = length;
    }
    headerDone_ = true;
    if (noBody)
        state_ = State::Done;
    else if (chunked)
        state_ = State::ChunkSize;
    else if (contentLength_ >= 0)
        state_ = contentLength_ == 0 ? State::Done : State::Body;
    else
        state_ = State::BodyUntilClose;
    if (!sink.onResponseHeader(header_))
        return Stopped;
    return NeedMore;
}

CHttpResponseParser::Result CHttpResponseParser::parseChunkSize()
{
    QByteArray text = line_;
    const int extension = text.indexOf(';');
    if (extension >= 0)
        text.truncate(extension);
    text = text.trimmed();
    // Fifteen hex digits keep the size below 2^60: no overflow in a qint64.
    bool hex = !text.isEmpty() && text.size() <= 15;
    for (char c : text)
        hex = hex && ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'));
    if (!hex)
        return fail(CHttpConnection::InvalidResponseHeader,
                    QStringLiteral("Invalid chunk size \"%1\"").arg(QString::fromLatin1(line_.left(80))));
    chunkLeft_ = text.toLongLong(nullptr, 16);
    state_ = chunkLeft_ == 0 ? State::Trailers : State::ChunkData;
    return NeedMore;
}

CHttpResponseParser::Result CHttpResponseParser::finishAtClose()
{
    switch (state_) {
    case State::Done:
        return Complete;
    case State::Failed:
        return Failed;
    case State::BodyUntilClose:
        state_ = State::Done;
        return Complete;
    case State::Body:
        return fail(CHttpConnection::WrongContentLength,
                    QStringLiteral("Connection closed after %1 of %2 body bytes")
                        .arg(bodyBytes_).arg(contentLength_));
    default:
        return fail(CHttpConnection::UnexpectedClose,
                    QStringLiteral("Server closed the connection unexpectedly"));
    }
}
