#pragma once
// Real servers for tests that are about a real server: Debian's nginx serving
// a folder, and tinyproxy with Basic authentication. Each is started on a free
// loopback port with a generated configuration in its own temporary folder,
// and stopped when the object goes away.
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStringList>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QThread>

#include "FileHelpers.h"

inline quint16 freeLoopbackPort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

// A server program on a free loopback port, with its configuration and logs
// in a temporary folder of its own.
class ServerProcess {
public:
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;
    ~ServerProcess()
    {
        if (!running())
            return;
        process_.terminate();
        if (!process_.waitForFinished(10000))
            stop();
    }

    // Ends the server at once, cutting every connection, as an outage would.
    void stop()
    {
        if (running()) {
            process_.kill();
            process_.waitForFinished();
        }
        started_ = false;
    }

    bool started() const { return started_; }
    quint16 port() const { return port_; }

protected:
    ServerProcess() : port_(freeLoopbackPort()) {}

    // Starts the program (again); true once it accepts connections.
    bool startProgram(const QString& program, const QStringList& arguments)
    {
        // Output to files: a server left behind by a crashed test must not
        // hold the test runner's pipes open.
        process_.setStandardOutputFile(dir_.filePath(QStringLiteral("stdout.log")), QIODevice::Append);
        process_.setStandardErrorFile(dir_.filePath(QStringLiteral("stderr.log")), QIODevice::Append);
        process_.start(program, arguments);
        started_ = process_.waitForStarted() && waitForListener();
        return started_;
    }

    QString path(const char* name) const { return dir_.filePath(QLatin1String(name)); }
    QByteArray tmp() const { return dir_.path().toLocal8Bit(); }
    QString readLog(const char* name) const
    {
        QFile log(path(name));
        log.open(QIODevice::ReadOnly);
        return QString::fromLocal8Bit(log.readAll());
    }

private:
    // A start that failed half way can leave QProcess holding a process id
    // of -1, and a signal to -1 reaches every process of the user.
    bool running() const { return process_.state() != QProcess::NotRunning && process_.processId() > 0; }

    bool waitForListener()
    {
        for (int attempt = 0; attempt < 500; ++attempt) {
            if (process_.state() == QProcess::NotRunning)
                return false;
            QTcpSocket socket;
            socket.connectToHost(QHostAddress::LocalHost, port_);
            if (socket.waitForConnected(200))
                return true;
            QThread::msleep(20);
        }
        return false;
    }

    QTemporaryDir dir_;
    QProcess process_;
    quint16 port_ = 0;
    bool started_ = false;
};

class NginxServer : public ServerProcess {
public:
    // Serves documentRoot; Range requests are answered with 206 by nginx
    // itself. With slowPath, that one file is sent at bytesPerSecond, so that
    // a test can act while it is half way.
    explicit NginxServer(const QString& documentRoot, const QString& slowPath = QString(),
                         int bytesPerSecond = 0)
    {
        const QByteArray throttle = slowPath.isEmpty()
            ? QByteArray()
            : "    location = " + slowPath.toLocal8Bit() + " {\n"
              "      limit_rate " + QByteArray::number(bytesPerSecond) + ";\n"
              "    }\n";
        writeText(path("nginx.conf"),
                  "daemon off;\n"
                  "master_process off;\n"
                  "worker_processes 1;\n"
                  "pid " + tmp() + "/nginx.pid;\n"
                  "error_log " + tmp() + "/error.log;\n"
                  "events { worker_connections 64; }\n"
                  "http {\n"
                  "  log_format requests '$request|$status|$http_range|$body_bytes_sent';\n"
                  "  access_log " + tmp() + "/access.log requests;\n"
                  "  client_body_temp_path " + tmp() + "/body;\n"
                  "  proxy_temp_path " + tmp() + "/proxy;\n"
                  "  fastcgi_temp_path " + tmp() + "/fastcgi;\n"
                  "  default_type application/octet-stream;\n"
                  "  sendfile on;\n"
                  "  server {\n"
                  "    listen 127.0.0.1:" + QByteArray::number(port()) + ";\n"
                  "    root " + documentRoot.toLocal8Bit() + ";\n"
                  + throttle +
                  "  }\n"
                  "}\n");
        start();
    }

    // Starts the server (again) on its port; true once it accepts connections.
    bool start()
    {
        return startProgram(QStringLiteral("/usr/sbin/nginx"),
                            {QStringLiteral("-p"), QString::fromLocal8Bit(tmp()), QStringLiteral("-e"),
                             path("error.log"), QStringLiteral("-c"), path("nginx.conf")});
    }

    QString baseUrl() const { return QStringLiteral("http://127.0.0.1:%1").arg(port()); }
    // One line per finished request: "GET /path HTTP/1.1|status|Range header|body bytes".
    QStringList accessLog() const
    {
        return readLog("access.log").split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }
    QString errorLog() const { return readLog("error.log"); }
};

class TinyProxy : public ServerProcess {
public:
    // With upstreamPort, every request is passed on to the HTTP proxy on that
    // loopback port (an nginx answers absolute URIs like a proxy chain's end).
    TinyProxy(const QByteArray& user, const QByteArray& password, quint16 upstreamPort = 0)
    {
        writeText(path("tinyproxy.conf"),
                  "Port " + QByteArray::number(port()) + "\n"
                  "Listen 127.0.0.1\n"
                  "Timeout 60\n"
                  "LogFile \"" + tmp() + "/tinyproxy.log\"\n"
                  "LogLevel Info\n"
                  "MaxClients 20\n"
                  "Allow 127.0.0.1\n"
                  "DisableViaHeader Yes\n"
                  "BasicAuth " + user + " " + password + "\n"
                  + (upstreamPort ? "Upstream http 127.0.0.1:" + QByteArray::number(upstreamPort) + "\n"
                                  : QByteArray()));
        startProgram(QStringLiteral("/usr/bin/tinyproxy"),
                     {QStringLiteral("-d"), QStringLiteral("-c"), path("tinyproxy.conf")});
    }
    QString log() const { return readLog("tinyproxy.log"); }
};
