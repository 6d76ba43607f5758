#pragma once
// Real servers for tests that are about a real server: Debian's nginx and
// lighttpd serving a folder, tinyproxy and squid with Basic authentication.
// Each is started on a free loopback port with a generated configuration in
// its own temporary folder, and stopped when the object goes away, also when
// the test failed.
#include <memory>
#include <ostream>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

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
    virtual ~ServerProcess()
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

    // Why a start failed, or what the server said: the program's own log
    // files and what it printed.
    QString log() const
    {
        QString text = process_.error() == QProcess::FailedToStart
            ? QStringLiteral("%1: %2\n").arg(process_.program(), process_.errorString())
            : QString();
        for (const char* name : logFiles())
            text += readLog(name);
        return text + readLog("stdout.log") + readLog("stderr.log");
    }

protected:
    ServerProcess() : port_(freeLoopbackPort()) {}

    // The folder's log files that say why the program stopped.
    virtual std::vector<const char*> logFiles() const = 0;

    // Starts the program (again); true once it listens on the port itself. A
    // program that exits or never listens fails the start within seconds.
    bool startProgram(const QString& program, const QStringList& arguments)
    {
        // Output to files: a server left behind by a crashed test must not
        // hold the test runner's pipes open.
        process_.setStandardOutputFile(dir_.filePath(QStringLiteral("stdout.log")), QIODevice::Append);
        process_.setStandardErrorFile(dir_.filePath(QStringLiteral("stderr.log")), QIODevice::Append);
        process_.start(program, arguments);
        started_ = process_.waitForStarted() && waitForListener();
        if (!started_)
            stop();
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
    // For a server that drops its privileges: its folder open to every user.
    void openFolderToAll() const { chmod(tmp().constData(), 0777); }

private:
    // A start that failed half way can leave QProcess holding a process id
    // of -1, and a signal to -1 reaches every process of the user.
    bool running() const { return process_.state() != QProcess::NotRunning && process_.processId() > 0; }

    // A connection alone proves nothing: when the port was taken meanwhile,
    // whoever took it answers. The listening socket must be the program's.
    bool waitForListener()
    {
        for (int attempt = 0; attempt < 500; ++attempt) {
            if (process_.state() == QProcess::NotRunning)
                return false;
            const QByteArray socket = listeningSocket(port_);
            if (!socket.isEmpty())
                return holdsSocket(process_.processId(), socket);
            QThread::msleep(20);
        }
        return false;
    }

    // "socket:[inode]" of the socket listening on 127.0.0.1:port, empty when
    // there is none (/proc/net/tcp: "sl local rem st ... uid timeout inode").
    static QByteArray listeningSocket(quint16 port)
    {
        QFile table(QStringLiteral("/proc/net/tcp"));
        if (!table.open(QIODevice::ReadOnly))
            return QByteArray();
        const QByteArray local = "0100007F:" + QByteArray::number(port, 16).toUpper().rightJustified(4, '0');
        for (const QByteArray& line : table.readAll().split('\n')) {
            const QList<QByteArray> fields = line.simplified().split(' ');
            if (fields.size() > 9 && fields[1] == local && fields[3] == "0A")
                return "socket:[" + fields[9] + "]";
        }
        return QByteArray();
    }

    static bool holdsSocket(qint64 pid, const QByteArray& socket)
    {
        const QString fds = QStringLiteral("/proc/%1/fd").arg(pid);
        for (const QString& fd : QDir(fds).entryList(QDir::System | QDir::NoDotAndDotDot)) {
            char target[64] = {};
            const ssize_t length = readlink(QFile::encodeName(fds + QLatin1Char('/') + fd).constData(), target,
                                            sizeof target - 1);
            if (length > 0 && socket == QByteArray(target, int(length)))
                return true;
        }
        return false;
    }

    QTemporaryDir dir_;
    QProcess process_;
    quint16 port_ = 0;
    bool started_ = false;
};

// A web server serving a folder over HTTP/1.1, answering Range with 206.
class FileServer : public ServerProcess {
public:
    // Starts the server (again) on its port; true once it accepts connections.
    virtual bool start() = 0;
    QString baseUrl() const { return QStringLiteral("http://127.0.0.1:%1").arg(port()); }
    // One line per finished request: "GET /path HTTP/1.1|status|Range header|body bytes",
    // "-" for a missing Range; the path as the client wrote it (absolute or not).
    QStringList accessLog() const { return readLog("access.log").split(QLatin1Char('\n'), Qt::SkipEmptyParts); }
};

class NginxServer : public FileServer {
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

    bool start() override
    {
        return startProgram(QStringLiteral("/usr/sbin/nginx"),
                            {QStringLiteral("-p"), QString::fromLocal8Bit(tmp()), QStringLiteral("-e"),
                             path("error.log"), QStringLiteral("-c"), path("nginx.conf")});
    }

protected:
    std::vector<const char*> logFiles() const override { return {"error.log"}; }
};

class LighttpdServer : public FileServer {
public:
    // As NginxServer; lighttpd throttles in whole KiB per second.
    explicit LighttpdServer(const QString& documentRoot, const QString& slowPath = QString(),
                            int bytesPerSecond = 0)
    {
        const QByteArray throttle = slowPath.isEmpty()
            ? QByteArray()
            : "$HTTP[\"url\"] == \"" + slowPath.toLocal8Bit() + "\" {\n"
              "  connection.kbytes-per-second = " + QByteArray::number(qMax(1, bytesPerSecond / 1024)) + "\n"
              "}\n";
        // The access log goes through a pipe: lighttpd writes to a file only
        // now and then, to a pipe at the end of every request.
        writeText(path("lighttpd.conf"),
                  "server.document-root = \"" + documentRoot.toLocal8Bit() + "\"\n"
                  "server.bind = \"127.0.0.1\"\n"
                  "server.port = " + QByteArray::number(port()) + "\n"
                  "server.errorlog = \"" + tmp() + "/error.log\"\n"
                  "server.pid-file = \"" + tmp() + "/lighttpd.pid\"\n"
                  "server.stat-cache-engine = \"disable\"\n"
                  "server.modules = (\"mod_accesslog\")\n"
                  "accesslog.filename = \"|exec /bin/cat >> '" + tmp() + "/access.log'\"\n"
                  "accesslog.format = \"%r|%>s|%{Range}i|%b\"\n"
                  "mimetype.assign = (\"\" => \"application/octet-stream\")\n"
                  + throttle);
        start();
    }

    bool start() override
    {
        return startProgram(QStringLiteral("/usr/sbin/lighttpd"),
                            {QStringLiteral("-D"), QStringLiteral("-f"), path("lighttpd.conf")});
    }

protected:
    std::vector<const char*> logFiles() const override { return {"error.log"}; }
};

// The server families a test about "a real server" runs against, by name.
struct FileServerFamily {
    const char* name;
    std::unique_ptr<FileServer> (*make)(const QString& documentRoot, const QString& slowPath, int bytesPerSecond);
};

template <class Server>
std::unique_ptr<FileServer> makeFileServer(const QString& documentRoot, const QString& slowPath, int bytesPerSecond)
{
    return std::make_unique<Server>(documentRoot, slowPath, bytesPerSecond);
}

inline std::ostream& operator<<(std::ostream& out, const FileServerFamily& family) { return out << family.name; }

inline const FileServerFamily kFileServerFamilies[] = {
    {"Nginx", &makeFileServer<NginxServer>},
    {"Lighttpd", &makeFileServer<LighttpdServer>},
};

// An HTTP forward proxy with Basic authentication. Its log names every URL
// it was asked for.
class ForwardProxy : public ServerProcess {
public:
    virtual QString requestLog() const = 0;
    // The status of the last answer to a request for url, 0 when the proxy
    // does not log its answers.
    virtual int answerTo(const QString&) const { return 0; }
};

class TinyProxy : public ForwardProxy {
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
    QString requestLog() const override { return readLog("tinyproxy.log"); }

protected:
    std::vector<const char*> logFiles() const override { return {"tinyproxy.log"}; }
};

// squid as a corporate caching proxy: Basic authentication through its
// basic_ncsa_auth helper and a generated password file, a disk cache of its
// own, and ranged requests filled from the whole object, which it fetches
// and keeps (range_offset_limit -1).
class SquidProxy : public ForwardProxy {
public:
    SquidProxy(const QByteArray& user, const QByteArray& password, quint16 upstreamPort = 0)
    {
        // Started as root, squid runs as "proxy": its folder, its cache and
        // the password file its helper reads must be open to that user.
        openFolderToAll();
        const bool root = geteuid() == 0;
        QProcess hash;
        hash.start(QStringLiteral("openssl"), {QStringLiteral("passwd"), QStringLiteral("-apr1"),
                                               QString::fromLocal8Bit(password)});
        const QByteArray hashed = hash.waitForFinished() ? hash.readAllStandardOutput().trimmed() : QByteArray();
        if (!hashed.startsWith("$apr1$")) {
            writeText(path("stderr.log"), "openssl passwd -apr1 gave no hash: " + hash.errorString().toLocal8Bit()
                                              + hash.readAllStandardError());
            return;
        }
        writeText(path("passwd"), user + ":" + hashed + "\n");
        chmod(QFile::encodeName(path("passwd")).constData(), 0644);
        const QByteArray parent = upstreamPort
            ? "cache_peer 127.0.0.1 parent " + QByteArray::number(upstreamPort) + " 0 no-query default\n"
              "never_direct allow all\n"
            : QByteArray();
        writeText(path("squid.conf"),
                  "http_port 127.0.0.1:" + QByteArray::number(port()) + "\n"
                  "pid_filename " + tmp() + "/squid.pid\n"
                  + (root ? "cache_effective_user proxy\n" : "") +
                  "cache_dir ufs " + tmp() + "/cache 16 4 4\n"
                  "coredump_dir " + tmp() + "\n"
                  "logformat requests %rm %ru %>Hs %{Range}>h\n"
                  "access_log stdio:" + tmp() + "/access.log requests\n"
                  "cache_log " + tmp() + "/cache.log\n"
                  "cache_store_log none\n"
                  "netdb_filename none\n"
                  "pinger_enable off\n"
                  "visible_hostname localhost\n"
                  "shutdown_lifetime 0 seconds\n"
                  "range_offset_limit -1\n"
                  "auth_param basic program /usr/lib/squid/basic_ncsa_auth " + tmp() + "/passwd\n"
                  "auth_param basic children 2 startup=1\n"
                  "auth_param basic realm updates\n"
                  "acl users proxy_auth REQUIRED\n"
                  "http_access allow users\n"
                  "http_access deny all\n"
                  + parent);
        // The cache's folders are made by a first run of its own (-z).
        QProcess makeCache;
        makeCache.setProcessChannelMode(QProcess::MergedChannels);
        makeCache.start(QStringLiteral("/usr/sbin/squid"), arguments({QStringLiteral("-z")}));
        if (!makeCache.waitForFinished(30000) || makeCache.exitCode() != 0) {
            writeText(path("stderr.log"), makeCache.readAll());
            return;
        }
        startProgram(QStringLiteral("/usr/sbin/squid"), arguments({}));
    }
    // squid takes seconds to shut down even when told to waste none; the
    // test is over, so it is ended at once, and the shared memory it would
    // have removed is removed here.
    ~SquidProxy() override
    {
        stop();
        const QDir shared(QStringLiteral("/dev/shm"));
        for (const QString& segment : shared.entryList({serviceName() + QStringLiteral("-*")}, QDir::Files))
            QFile::remove(shared.filePath(segment));
    }

    // One line per request: "METHOD URL status Range".
    QString requestLog() const override { return readLog("access.log"); }
    int answerTo(const QString& url) const override
    {
        int status = 0;
        for (const QString& line : requestLog().split(QLatin1Char('\n'))) {
            const QStringList fields = line.split(QLatin1Char(' '));
            if (fields.size() > 2 && fields[1] == url)
                status = fields[2].toInt();
        }
        return status;
    }

protected:
    std::vector<const char*> logFiles() const override { return {"cache.log"}; }

private:
    // The service name prefixes squid's shared memory segments
    // (/dev/shm/NAME-cf__queues.shm, ...): one per proxy, so that proxies of
    // tests running side by side, or one killed before, never share them.
    QString serviceName() const { return QStringLiteral("dmtest%1").arg(port()); }
    QStringList arguments(QStringList more) const
    {
        return more << QStringLiteral("-N") << QStringLiteral("-n") << serviceName() << QStringLiteral("-f")
                    << path("squid.conf");
    }
};

struct ForwardProxyFamily {
    const char* name;
    std::unique_ptr<ForwardProxy> (*make)(const QByteArray& user, const QByteArray& password, quint16 upstreamPort);
};

template <class Proxy>
std::unique_ptr<ForwardProxy> makeForwardProxy(const QByteArray& user, const QByteArray& password,
                                               quint16 upstreamPort)
{
    return std::make_unique<Proxy>(user, password, upstreamPort);
}

inline std::ostream& operator<<(std::ostream& out, const ForwardProxyFamily& family) { return out << family.name; }

inline const ForwardProxyFamily kForwardProxyFamilies[] = {
    {"Tinyproxy", &makeForwardProxy<TinyProxy>},
    {"Squid", &makeForwardProxy<SquidProxy>},
};
