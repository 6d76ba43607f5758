#pragma once
// Incremental parser of one HTTP/1.x response: status line, header fields and
// a body delimited by Content-Length, chunked transfer coding (RFC 7230,
// section 4.1) or the end of the connection. Body bytes are handed to the
// sink as they arrive and never collected here, so memory stays bounded by
// the limits below whatever the response holds.
#include <QByteArray>
#include <QString>

#include "transfer/HttpResponseHeader.h"

class CHttpResponseSink {
public:
    virtual ~CHttpResponseSink() = default;
    // Each returns false to stop the parser at once (the request was aborted).
    virtual bool onResponseHeader(const CHttpResponseHeader& header) = 0;
    virtual bool onBodyData(const char* data, qint64 size) = 0;
};

class CHttpResponseParser {
public:
    // A longer status or header line, or chunk-size line, is refused.
    static constexpr int kMaxLineLength = 64 * 1024;
    // More header fields (or trailer fields) than this are refused.
    static constexpr int kMaxHeaderCount = 256;
    // The whole header block, lines and line ends counted.
    static constexpr int kMaxHeaderBytes = 256 * 1024;

    enum Result { NeedMore, Complete, Stopped, Failed };

    // A response to HEAD has no body whatever its header says.
    explicit CHttpResponseParser(bool headRequest = false) : headRequest_(headRequest) {}

    Result feed(const char* data, qint64 size, CHttpResponseSink& sink);
    // The connection has ended: a body delimited by the close is complete;
    // anything else still open is an error.
    Result finishAtClose();

    bool headerComplete() const { return headerDone_; }
    bool isComplete() const { return state_ == State::Done; }
    const CHttpResponseHeader& header() const { return header_; }
    qint64 bodyBytes() const { return bodyBytes_; }
    // Content-Length, or -1 when the body is chunked or ends with the close.
    qint64 expectedLength() const { return contentLength_; }
    // The connection's error number and a text naming what was wrong.
    int error() const { return error_; }
    QString errorString() const { return errorString_; }

private:
    enum class State {
        StatusLine, HeaderLines, Body, ChunkSize, ChunkData, ChunkDataEnd, Trailers,
        BodyUntilClose, Done, Failed
    };

    Result fail(int error, const QString& text);
    // Collects a line; true once a whole line (without its end) is in line_.
    bool takeLine(const char*& data, const char* end, Result& failure);
    Result handleLine(CHttpResponseSink& sink);
    Result parseStatusLine();
    Result parseHeaderLine();
    Result headerFinished(CHttpResponseSink& sink);
    Result parseChunkSize();

    bool headRequest_;
    State state_ = State::StatusLine;
    QByteArray line_;
    CHttpResponseHeader header_;
    bool headerDone_ = false;
    int headerBytes_ = 0;
    int trailerCount_ = 0;
    qint64 contentLength_ = -1;
    qint64 bodyBytes_ = 0;
    qint64 chunkLeft_ = 0;
    int error_ = 0;
    QString errorString_;
};
