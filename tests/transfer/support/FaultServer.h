#pragma once
// A scripted HTTP server for tests: listens on a free loopback port, records
// the exact bytes of every request, and answers each connection with the next
// reply of its script (the last one repeats). The broken replies the transfer
// code must survive are built by faultReply() from one table.
#include <ostream>

#include <QByteArray>
#include <QList>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QVector>

struct ScriptedReply {
    QByteArray bytes;       // sent as one write once the request is in
    bool closeAfter = true; // close the connection after sending
    bool silent = false;    // accept, read, never answer
};

enum class Fault {
    DropMidBody,      // Content-Length 100, 40 bytes sent, then the close
    NoContentLength,  // body ends with the close
    NotFound,         // 404 with a small page
    InvalidStatusLine,
    Chunked,          // body in three chunks with an extension and a trailer
    NeverAnswers,
    NegativeLength,
    NonNumericLength,
    OverflowingChunk,
    BodyLongerThanLength,
    HugeHeaderLine,   // one header line of 1 MB
    TenThousandHeaders,
    CloseBeforeAnswer,
};

// The body every well-formed fault reply carries.
inline QByteArray faultBody()
{
    return QByteArray("0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ");
}

inline ScriptedReply okReply(const QByteArray& body, int status = 200,
                             const QByteArray& extraHeaders = QByteArray())
{
    ScriptedReply r;
    r.bytes = "HTTP/1.1 " + QByteArray::number(status) + " Status\r\nContent-Length: "
        + QByteArray::number(body.size()) + "\r\n" + extraHeaders + "\r\n" + body;
    return r;
}

inline ScriptedReply faultReply(Fault fault)
{
    const QByteArray body = faultBody();
    ScriptedReply r;
    switch (fault) {
    case Fault::DropMidBody:
        r.bytes = "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n" + body.left(40);
        break;
    case Fault::NoContentLength:
        r.bytes = "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + body;
        break;
    case Fault::NotFound:
        r = okReply("<html>not found</html>", 404);
        break;
    case Fault::InvalidStatusLine:
        r.bytes = "HTTQ/1.1 2x0 OK\r\nContent-Length: 5\r\n\r\nhello";
        break;
    case Fault::Chunked:
        r.bytes = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                  "a;name=value\r\n" + body.left(10) + "\r\n"
                  "1A\r\n" + body.mid(10, 26) + "\r\n"
                  + QByteArray::number(body.size() - 36, 16) + "\r\n" + body.mid(36) + "\r\n"
                  "0\r\nX-Trailer: yes\r\n\r\n";
        break;
    case Fault::NeverAnswers:
        r.silent = true;
        r.closeAfter = false;
        break;
    case Fault::NegativeLength:
        r.bytes = "HTTP/1.1 200 OK\r\nContent-Length: -5\r\n\r\n" + body;
        break;
    case Fault::NonNumericLength:
        r.bytes = "HTTP/1.1 200 OK\r\nContent-Length: 12ab\r\n\r\n" + body;
        break;
    case Fault::OverflowingChunk:
        r.bytes = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                  "fffffffffffffffffff1\r\nabc";
        break;
    case Fault::BodyLongerThanLength:
        r.bytes = "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n" + body;
        r.closeAfter = false;
        break;
    case Fault::HugeHeaderLine:
        r.bytes = "HTTP/1.1 200 OK\r\nX-Big: " + QByteArray(1024 * 1024, 'x')
            + "\r\nContent-Length: 3\r\n\r\nabc";
        break;
    case Fault::TenThousandHeaders:
        r.bytes = "HTTP/1.1 200 OK\r\n";
        for (int i = 0; i < 10000; ++i)
            r.bytes += "X-H" + QByteArray::number(i) + ": v\r\n";
        r.bytes += "Content-Length: 3\r\n\r\nabc";
        break;
    case Fault::CloseBeforeAnswer:
        r.bytes.clear();
        break;
    }
    return r;
}

class FaultServer : public QObject {
public:
    explicit FaultServer(QList<ScriptedReply> script) : script_(std::move(script))
    {
        server_.listen(QHostAddress::LocalHost, 0);
        QObject::connect(&server_, &QTcpServer::newConnection, this, [this] { accept(); });
    }
    quint16 port() const { return server_.serverPort(); }
    bool listening() const { return server_.isListening(); }
    void setScript(QList<ScriptedReply> script) { script_ = std::move(script); }

    // Every request received so far, byte for byte (request line to the
    // empty line).
    QVector<QByteArray> requests;
    int connections = 0;

private:
    void accept()
    {
        while (QTcpSocket* socket = server_.nextPendingConnection()) {
            const ScriptedReply reply = script_.isEmpty()
                ? ScriptedReply()
                : script_.at(qMin(connections, script_.size() - 1));
            ++connections;
            socket->setParent(this);
            auto* pending = new QByteArray;
            QObject::connect(socket, &QTcpSocket::readyRead, this, [this, socket, reply, pending] {
                pending->append(socket->readAll());
                const int end = pending->indexOf("\r\n\r\n");
                if (end < 0)
                    return;
                requests.append(pending->left(end + 4));
                pending->clear();
                if (reply.silent)
                    return;
                socket->write(reply.bytes);
                if (reply.closeAfter)
                    socket->disconnectFromHost();
            });
            QObject::connect(socket, &QObject::destroyed, [pending] { delete pending; });
        }
    }

    QTcpServer server_;
    QList<ScriptedReply> script_;
};

// Request and body bytes print as text in assertion messages.
inline void PrintTo(const QByteArray& bytes, std::ostream* os)
{
    *os << '"' << bytes.left(400).toStdString() << (bytes.size() > 400 ? "\"..." : "\"");
}
