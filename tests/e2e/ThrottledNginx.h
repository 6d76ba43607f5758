#pragma once
// nginx serving a folder with one path sent slowly, so that a test can act
// while that file is half way: kill the host, or stop the server. It can be
// started again on the same port, as a server coming back after an outage.
#include <QDir>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

#include "transfer/support/RealServers.h"

class ThrottledNginx {
public:
    ThrottledNginx(const QString& documentRoot, const QString& slowPath, int bytesPerSecond)
    {
        port_ = freeLoopbackPort();
        const QByteArray tmp = dir_.path().toLocal8Bit();
        const QByteArray conf =
            "daemon off;\n"
            "master_process off;\n"
            "worker_processes 1;\n"
            "pid " + tmp + "/nginx.pid;\n"
            "error_log " + tmp + "/error.log;\n"
            "events { worker_connections 64; }\n"
            "http {\n"
            "  log_format requests '$request|$status|$http_range|$body_bytes_sent';\n"
            "  access_log " + tmp + "/access.log requests;\n"
            "  client_body_temp_path " + tmp + "/body;\n"
            "  proxy_temp_path " + tmp + "/proxy;\n"
            "  fastcgi_temp_path " + tmp + "/fastcgi;\n"
            "  default_type application/octet-stream;\n"
            "  server {\n"
            "    listen 127.0.0.1:" + QByteArray::number(port_) + ";\n"
            "    root " + documentRoot.toLocal8Bit() + ";\n"
            "    location = " + slowPath.toLocal8Bit() + " {\n"
            "      limit_rate " + QByteArray::number(bytesPerSecond) + ";\n"
            "    }\n"
            "  }\n"
            "}\n";
        writeText(dir_.filePath(QStringLiteral("nginx.conf")), conf);
        start();
    }
    ~ThrottledNginx() { stop(); }

    // Starts the server (again) on its port; true once it accepts connections.
    bool start()
    {
        process_.setStandardOutputFile(dir_.filePath(QStringLiteral("stdout.log")), QIODevice::Append);
        process_.setStandardErrorFile(dir_.filePath(QStringLiteral("stderr.log")), QIODevice::Append);
        process_.start(QStringLiteral("/usr/sbin/nginx"),
                       {QStringLiteral("-p"), dir_.path(), QStringLiteral("-e"),
                        dir_.filePath(QStringLiteral("error.log")), QStringLiteral("-c"),
                        dir_.filePath(QStringLiteral("nginx.conf"))});
        started_ = process_.waitForStarted() && waitForListener(port_, process_);
        return started_;
    }

    // Ends the server at once, cutting every connection.
    void stop()
    {
        process_.kill();
        process_.waitForFinished();
        started_ = false;
    }

    bool started() const { return started_; }
    QString baseUrl() const { return QStringLiteral("http://127.0.0.1:%1").arg(port_); }
    // One line per finished request: "GET /path HTTP/1.1|status|Range header|body bytes sent".
    QStringList accessLog() const
    {
        QFile log(dir_.filePath(QStringLiteral("access.log")));
        log.open(QIODevice::ReadOnly);
        return QString::fromLocal8Bit(log.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }
    QString errorLog() const
    {
        QFile log(dir_.filePath(QStringLiteral("error.log")));
        log.open(QIODevice::ReadOnly);
        return QString::fromLocal8Bit(log.readAll());
    }

private:
    QTemporaryDir dir_;
    QProcess process_;
    quint16 port_ = 0;
    bool started_ = false;
};
