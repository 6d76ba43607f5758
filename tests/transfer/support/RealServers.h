#pragma once
// Real servers for tests that are about a real server: Debian's nginx and
// lighttpd serving a folder, tinyproxy and squid with Basic authentication,
// each on a free loopback port with a generated configuration in a temporary
// folder of its own, stopped when the object goes away, also when the test
// failed. A start that fails fails within seconds, and log() says why.
#include <memory>
#include <ostream>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include <QProcess>
#include <QTcpServer>
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
        if (running()) {
            process_.terminate();
            if (!process_.waitForFinished(10000))
                stop();
        }
    }

    // Starts the program (again); true once it listens on the port itself.
    bool start()
    {
        // Output to files: a server left behind by a crashed test must not
        // hold the test runner's pipes open.
        process_.setStandardOutputFile(path("stdout.log"), QIODevice::Append);
        process_.setStandardErrorFile(path("stderr.log"), QIODevice::Append);
        process_.start(program_, arguments_);
        started_ = process_.waitForStarted() && waitForListener();
        if (!started_)
            stop();
        return started_;
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

    // Why a start failed, or what the server said: its own log and what it printed.
    QString log() const
    {
        const QString failed = process_.error() == QProcess::FailedToStart
            ? QStringLiteral("%1: %2\n").arg(process_.program(), process_.errorString())
            : QString();
        return failed + readLog(logFile_) + readLog("stdout.log") + readLog("stderr.log");
    }

protected:
    explicit ServerProcess(const char* logFile) : logFile_(logFile) {}

    void setProgram(const char* program, const QStringList& arguments)
    {
        program_ = QLatin1String(program);
        arguments_ = arguments;
    }
    QString path(const char* name) const { return dir_.filePath(QLatin1String(name)); }
    QByteArray tmp() const { return dir_.path().toLocal8Bit(); }
    QByteArray portText() const { return QByteArray::number(port_); }
    QString readLog(const char* name) const { return QString::fromLocal8Bit(readFile(path(name))); }

private:
    // A start that failed half way can leave QProcess holding a process id
    // of -1, and a signal to -1 reaches every process of the user.
    bool running() const { return process_.state() != QProcess::NotRunning && process_.processId() > 0; }

    // A connection alone proves nothing: when the port was taken meanwhile,
    // whoever took it answers. The socket listening on 127.0.0.1:port
    // (/proc/net/tcp: "sl local rem st ... uid timeout inode") must be the
    // program's.
    bool waitForListener() const
    {
        const QByteArray local = "0100007F:" + QByteArray::number(port_, 16).toUpper().rightJustified(4, '0');
        for (int attempt = 0; attempt < 500 && process_.state() != QProcess::NotRunning; ++attempt) {
            for (const QByteArray& line : readFile(QStringLiteral("/proc/net/tcp")).split('\n')) {
                const QList<QByteArray> fields = line.simplified().split(' ');
                if (fields.size() > 9 && fields[1] == local && fields[3] == "0A")
                    return holdsSocket("socket:[" + fields[9] + "]");
            }
            QThread::msleep(20);
        }
        return false;
    }

    bool holdsSocket(const QByteArray& socket) const
    {
        const QString fds = QStringLiteral("/proc/%1/fd").arg(process_.processId());
        for (const QString& fd : QDir(fds).entryList(QDir::System | QDir::NoDotAndDotDot)) {
            char target[64] = {};
            const ssize_t length = readlink(QFile::encodeName(fds + '/' + fd).constData(), target, sizeof target - 1);
            if (length > 0 && socket == QByteArray(target, int(length)))
                return true;
        }
        return false;
    }

    QTemporaryDir dir_;
    QProcess process_;
    QString program_;
    QStringList arguments_;
    const char* logFile_;
    quint16 port_ = freeLoopbackPort();
    bool started_ = false;
};

// A web server serving a folder over HTTP/1.1, answering Range with 206.
// With slowPath, that one file is sent at bytesPerSecond, so that a test can
// act while it is half way.
class FileServer : public ServerProcess {
public:
    QString baseUrl() const { return QStringLiteral("http://127.0.0.1:%1").arg(port()); }
    // One line per finished request: "GET /path HTTP/1.1|status|Range header|body bytes",
    // "-" for a missing Range; the path as the client wrote it (absolute or not).
    QStringList accessLog() const { return readLog("access.log").split('\n', Qt::SkipEmptyParts); }

protected:
    FileServer() : ServerProcess("error.log") {}
};

class NginxServer : public FileServer {
public:
    explicit NginxServer(const QString& root, const QString& slowPath = QString(), int bytesPerSecond = 0)
    {
        const QByteArray throttle = slowPath.isEmpty() ? QByteArray()
            : "location = " + slowPath.toLocal8Bit() + " { limit_rate " + QByteArray::number(bytesPerSecond) + "; }\n";
        writeText(path("nginx.conf"),
                  "daemon off;\nmaster_process off;\nworker_processes 1;\n"
                  "pid " + tmp() + "/nginx.pid;\nerror_log " + tmp() + "/error.log;\n"
                  "events { worker_connections 64; }\n"
                  "http {\n"
                  "log_format requests '$request|$status|$http_range|$body_bytes_sent';\n"
                  "access_log " + tmp() + "/access.log requests;\n"
                  "client_body_temp_path " + tmp() + "/body;\nproxy_temp_path " + tmp() + "/proxy;\n"
                  "fastcgi_temp_path " + tmp() + "/fastcgi;\n"
                  "default_type application/octet-stream;\nsendfile on;\n"
                  "server { listen 127.0.0.1:" + portText() + ";\nroot " + root.toLocal8Bit() + ";\n"
                  + throttle + "}\n}\n");
        setProgram("/usr/sbin/nginx", {"-p", tmp(), "-e", path("error.log"), "-c", path("nginx.conf")});
        start();
    }
};

class LighttpdServer : public FileServer {
public:
    // lighttpd throttles in whole KiB per second.
    explicit LighttpdServer(const QString& root, const QString& slowPath = QString(), int bytesPerSecond = 0)
    {
        const QByteArray throttle = slowPath.isEmpty() ? QByteArray()
            : "$HTTP[\"url\"] == \"" + slowPath.toLocal8Bit() + "\" { connection.kbytes-per-second = "
                + QByteArray::number(qMax(1, bytesPerSecond / 1024)) + " }\n";
        // The access log goes through a pipe: lighttpd writes to a file only
        // now and then, to a pipe at the end of every request.
        writeText(path("lighttpd.conf"),
                  "server.document-root = \"" + root.toLocal8Bit() + "\"\nserver.bind = \"127.0.0.1\"\n"
                  "server.port = " + portText() + "\nserver.errorlog = \"" + tmp() + "/error.log\"\n"
                  "server.pid-file = \"" + tmp() + "/lighttpd.pid\"\nserver.stat-cache-engine = \"disable\"\n"
                  "server.modules = (\"mod_accesslog\")\n"
                  "accesslog.filename = \"|exec /bin/cat >> '" + tmp() + "/access.log'\"\n"
                  "accesslog.format = \"%r|%>s|%{Range}i|%b\"\n"
                  "mimetype.assign = (\"\" => \"application/octet-stream\")\n" + throttle);
        setProgram("/usr/sbin/lighttpd", {"-D", "-f", path("lighttpd.conf")});
        start();
    }
};

// Names a parameterised test after its family.
struct ByFamilyName {
    template <class Info>
    std::string operator()(const Info& info) const { return info.param.name; }
};

template <class Base, class Server, class... Arguments>
std::unique_ptr<Base> makeServer(Arguments... arguments)
{
    return std::make_unique<Server>(arguments...);
}

// The server families a test about "a real server" runs against.
struct FileServerFamily {
    const char* name;
    std::unique_ptr<FileServer> (*make)(const QString& root, const QString& slowPath, int bytesPerSecond);
    friend std::ostream& operator<<(std::ostream& out, const FileServerFamily& family) { return out << family.name; }
};

inline const FileServerFamily kFileServerFamilies[] = {
    {"Nginx", &makeServer<FileServer, NginxServer>},
    {"Lighttpd", &makeServer<FileServer, LighttpdServer>},
};

// An HTTP forward proxy that lets only "user" with password "secret" through
// (Basic authentication); with upstreamPort it passes every request on to
// that loopback port (an nginx answers absolute URIs like a proxy chain's
// end). Its log names every URL it was asked for.
class ForwardProxy : public ServerProcess {
public:
    QString requestLog() const { return readLog(requestLog_); }

protected:
    ForwardProxy(const char* logFile, const char* requestLog) : ServerProcess(logFile), requestLog_(requestLog) {}

private:
    const char* requestLog_;
};

class TinyProxy : public ForwardProxy {
public:
    explicit TinyProxy(quint16 upstreamPort = 0) : ForwardProxy("tinyproxy.log", "tinyproxy.log")
    {
        writeText(path("tinyproxy.conf"),
                  "Port " + portText() + "\nListen 127.0.0.1\nTimeout 60\nLogFile \"" + tmp()
                      + "/tinyproxy.log\"\nLogLevel Info\nMaxClients 20\nAllow 127.0.0.1\n"
                        "DisableViaHeader Yes\nBasicAuth user secret\n"
                      + (upstreamPort ? "Upstream http 127.0.0.1:" + QByteArray::number(upstreamPort) + "\n" : ""));
        setProgram("/usr/bin/tinyproxy", {"-d", "-c", path("tinyproxy.conf")});
        start();
    }
};

// squid as a corporate caching proxy: Basic authentication through its
// basic_ncsa_auth helper and a generated password file, a disk cache of its
// own, and ranged requests filled from the whole object, which it fetches
// and keeps (range_offset_limit -1). Its request log has one line per
// request: "METHOD URL status Range".
class SquidProxy : public ForwardProxy {
public:
    explicit SquidProxy(quint16 upstreamPort = 0) : ForwardProxy("cache.log", "access.log")
    {
        // Started as root, squid runs as "proxy": its folder, its cache and
        // the password file its helper reads must be open to that user.
        chmod(tmp().constData(), 0777);
        writeText(path("passwd"), "user:$apr1$dmtest$lNUI8DkfZ8R5mNpKUV1tf.\n");  // openssl passwd -apr1 secret
        chmod(QFile::encodeName(path("passwd")).constData(), 0644);
        writeText(path("squid.conf"),
                  "http_port 127.0.0.1:" + portText() + "\npid_filename " + tmp() + "/squid.pid\n"
                  + (geteuid() == 0 ? "cache_effective_user proxy\n" : "") +
                  "cache_dir ufs " + tmp() + "/cache 16 4 4\ncoredump_dir " + tmp() + "\n"
                  "logformat requests %rm %ru %>Hs %{Range}>h\n"
                  "access_log stdio:" + tmp() + "/access.log requests\ncache_log " + tmp() + "/cache.log\n"
                  "cache_store_log none\nnetdb_filename none\npinger_enable off\nvisible_hostname localhost\n"
                  "shutdown_lifetime 0 seconds\nrange_offset_limit -1\n"
                  "auth_param basic program /usr/lib/squid/basic_ncsa_auth " + tmp() + "/passwd\n"
                  "auth_param basic children 2 startup=1\nauth_param basic realm updates\n"
                  "acl users proxy_auth REQUIRED\nhttp_access allow users\nhttp_access deny all\n"
                  + (upstreamPort ? "cache_peer 127.0.0.1 parent " + QByteArray::number(upstreamPort)
                                        + " 0 no-query default\nnever_direct allow all\n"
                                  : QByteArray()));
        // The service name prefixes squid's shared memory segments: one per
        // proxy, so that proxies of tests side by side, or of one killed
        // before, never share them.
        const QStringList arguments{"-N", "-n", serviceName(), "-f", path("squid.conf")};
        // The cache's folders are made by a first run of its own (-z).
        QProcess makeCache;
        makeCache.setProcessChannelMode(QProcess::MergedChannels);
        makeCache.start(QStringLiteral("/usr/sbin/squid"), QStringList{"-z"} + arguments);
        if (!makeCache.waitForFinished(30000) || makeCache.exitCode() != 0) {
            writeText(path("stderr.log"), makeCache.readAll());
            return;
        }
        setProgram("/usr/sbin/squid", arguments);
        start();
    }
    // squid takes seconds to shut down even when told to waste none; the
    // test is over, so it is ended at once, and the shared memory it would
    // have removed is removed here.
    ~SquidProxy() override
    {
        stop();
        const QDir shared(QStringLiteral("/dev/shm"));
        for (const QString& segment : shared.entryList({serviceName() + "-*"}, QDir::Files))
            QFile::remove(shared.filePath(segment));
    }

private:
    QString serviceName() const { return QStringLiteral("dmtest%1").arg(port()); }
};

struct ForwardProxyFamily {
    const char* name;
    std::unique_ptr<ForwardProxy> (*make)(quint16 upstreamPort);
    friend std::ostream& operator<<(std::ostream& out, const ForwardProxyFamily& family) { return out << family.name; }
};

inline const ForwardProxyFamily kForwardProxyFamilies[] = {
    {"Tinyproxy", &makeServer<ForwardProxy, TinyProxy>},
    {"Squid", &makeServer<ForwardProxy, SquidProxy>},
};
