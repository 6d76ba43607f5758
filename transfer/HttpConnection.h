#pragma once
// An HTTP/1.1 client connection on QTcpSocket, used where the download code
// needs an HTTP connection with exact control over the bytes of the request.
// One request per connection: the request line and header fields go out
// exactly as given, in order; the response is read (status line, fields, a
// body delimited by Content-Length, chunked coding or the close) and the body
// is written to the output device as it arrives.
//
// Lives on the GUI thread. request() returns at once; the signals report the
// progress, and done() ends every request, also an aborted one.
#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QString>

#include "transfer/HttpRequestHeader.h"
#include "transfer/HttpResponseHeader.h"
#include "transfer/HttpResponseParser.h"

class QIODevice;
class QTcpSocket;
class QTimer;

class CHttpConnection : public QObject, private CHttpResponseSink {
    Q_OBJECT
public:
    // The error numbers of the connection; the HTTP file client's error table
    // is written against these values.
    enum Error {
        NoError = 0,
        UnknownError = 1,
        HostNotFound = 2,
        ConnectionRefused = 3,
        UnexpectedClose = 4,
        InvalidResponseHeader = 5,
        WrongContentLength = 6,
        Aborted = 7,
        ProxyAuthenticationRequiredError = 8,
        AuthenticationRequiredError = 9,
        // Nothing arrived for the idle time (setIdleTimeout): a server that
        // went quiet, or a connection a router dropped without a word.
        IdleTimeout = 10,
        // The output device refused body bytes (a full disk).
        WriteError = 11,
    };
    enum State { Unconnected = 0, HostLookup = 1, Connecting = 2, Sending = 3, Reading = 4,
                 Connected = 5, Closing = 6 };

    explicit CHttpConnection(QObject* parent = nullptr);
    ~CHttpConnection() override;

    // Where the next request goes; returns an identifier like request().
    int setHost(const QString& host, quint16 port = 80);
    // Starts the request on the next pass of the event loop. With a null
    // device the body is kept and can be taken with readAll().
    int request(const CHttpRequestHeader& header, const QByteArray& body = QByteArray(),
                QIODevice* out = nullptr);
    // Ends the running request; done(true) follows with the error Aborted.
    void abort();
    // A request during which nothing moves for ms milliseconds (no byte
    // received, none sent, no connection made) ends with IdleTimeout; 0, the
    // default, waits for ever.
    void setIdleTimeout(int ms) { idleTimeoutMs_ = ms; }

    Error error() const { return error_; }
    QString errorString() const { return errorString_; }
    State state() const { return state_; }
    int currentId() const { return currentId_; }
    CHttpResponseHeader lastResponse() const { return parser_.header(); }
    qint64 bytesAvailable() const { return buffered_.size(); }
    QByteArray readAll();

signals:
    void stateChanged(int state);
    void requestStarted(int id);
    void requestFinished(int id, bool error);
    void dataSendProgress(int done, int total);
    void dataReadProgress(int done, int total);
    void responseHeaderReceived(const CHttpResponseHeader& header);
    void readyRead(const CHttpResponseHeader& header);
    void done(bool error);

private slots:
    void start();
    void socketConnected();
    void socketBytesWritten(qint64 bytes);
    void socketReadyRead();
    void socketClosed();
    void socketError();

private:
    bool onResponseHeader(const CHttpResponseHeader& header) override;
    bool onBodyData(const char* data, qint64 size) override;
    void setState(State state);
    void finish(Error error, const QString& text);
    void stillAlive();

    QString host_;
    quint16 port_ = 80;
    int nextId_ = 1;
    int currentId_ = 0;
    CHttpRequestHeader header_;
    QByteArray outgoing_;
    qint64 sent_ = 0;
    QPointer<QIODevice> out_;
    QTcpSocket* socket_ = nullptr;
    CHttpResponseParser parser_;
    QByteArray buffered_;
    State state_ = Unconnected;
    Error error_ = NoError;
    QString errorString_;
    bool running_ = false;
    bool aborting_ = false;
    int idleTimeoutMs_ = 0;
    QTimer* idleTimer_ = nullptr;
};
