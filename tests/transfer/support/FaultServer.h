#pragma once
// A scripted HTTP server for tests: listens on a free loopback port, records
// the exact bytes of every request, and answers each connection with the next
// reply of its script (the last one repeats).
#include <memory>
#include <ostream>

#include <QByteArray>
#include <QList>
#include <QTcpServer>
#include <QTcpSocket>
#include <QVector>

struct ScriptedReply {
    QByteArray bytes;       // sent as one write once the request is in
    bool closeAfter = true; // close the connection after sending
    bool silent = false;    // accept, read, never answer
};

inline ScriptedReply okReply(const QByteArray& body, int status = 200,
                             const QByteArray& extraHeaders = QByteArray())
{
    return {"HTTP/1.1 " + QByteArray::number(status) + " Status\r\nContent-Length: "
            + QByteArray::number(body.size()) + "\r\n" + extraHeaders + "\r\n" + body};
}

// A server that takes the request and never says a word.
inline ScriptedReply silentReply()
{
    return {QByteArray(), false, true};
}

class FaultServer : public QObject {
public:
    explicit FaultServer(QList<ScriptedReply> script) : script_(std::move(script))
    {
        server_.listen(QHostAddress::LocalHost, 0);
        QObject::connect(&server_, &QTcpServer::newConnection, this, [this] { accept(); });
    }
    quint16 port() const { return server_.serverPort(); }

    // Every request received so far, byte for byte (request line to the
    // empty line).
    QVector<QByteArray> requests;
    int connections = 0;

private:
    void accept()
    {
        while (QTcpSocket* socket = server_.nextPendingConnection()) {
            const ScriptedReply reply = script_.value(qMin(connections++, script_.size() - 1));
            socket->setParent(this);
            auto pending = std::make_shared<QByteArray>();
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
