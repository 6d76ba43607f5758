#pragma once
// A terminal's sandbox for whole runs: a copy of the sample installed tree,
// the sample host profile, download.cfg naming a real web server that serves
// the sample server tree (or a copy a test changes), and the built
// module-host run headless on a script with the built updater. Its own
// script time limit ends a run that hangs. The target defines DM_MODULE_HOST
// and DM_UPDATER.
#include <memory>

#include <QDirIterator>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QTemporaryDir>
#include <QUrl>
#include <gtest/gtest.h>

#include "hostprog/ModuleHostRun.h"
#include "transfer/support/WaitFor.h"

using FileTree = QMap<QString, QByteArray>;

const QString kSamples = QStringLiteral(DM_SOURCE_DIR "/examples");

// Every file under root by its relative path, with its bytes.
inline FileTree readTree(const QString& root)
{
    FileTree tree;
    for (const QString& name : filesBelow(root))
        tree.insert(name, readFile(root + '/' + name));
    return tree;
}

inline bool copyTree(const QString& from, const QString& to)
{
    bool copied = QDir().mkpath(to);
    for (const QString& name : filesBelow(from))
        copied = QDir().mkpath(QFileInfo(to + '/' + name).path()) && QFile::copy(from + '/' + name, to + '/' + name)
            && copied;
    return copied;
}

// The automatic run's sample: the terminal's older installed tree against the
// server's newer configuration and modules. Installed path -> release module.
const QMap<QString, QString> kUpdatedByAutomaticRun = {
    {"bin/core.so", "core.so"},       {"bin/quotes.so", "quotes.so"},
    {"bin/charts.so", "charts.so"},   {"bin/orders.so", "orders.so"},
    {"plugins/scanner.so", "scanner.so"}, {"share/export.so", "export.so"},
    {"help/themes.pak", "themes.pak"}, {"share/fonts.pak", "fonts.pak"},
};

inline FileTree releaseFiles(const QMap<QString, QString>& updated)
{
    FileTree files;
    for (auto it = updated.begin(); it != updated.end(); ++it)
        files.insert(it.key(), readFile(kSamples + "/release/modules/" + it.value()));
    return files;
}

const QByteArray kAutomaticScript = "answer yes\nwait-log Installation ended\nquit\n";

struct WholeRun : HostRun {
    QString log;  // the module's log lines, as the host wrote them
    QString transcript() const { return out + err + "\n--- module log ---\n" + log; }
};

class WholeRunFixture : public ::testing::Test {
public:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid()) << "no temporary folder";
        for (const char* program : {DM_MODULE_HOST, DM_UPDATER})
            ASSERT_TRUE(QFileInfo(program).isExecutable()) << program << " is missing";
        ASSERT_TRUE(copyTree(kSamples + "/installed", installedDir)) << "copying the sample installed tree failed";
        installedBefore = readTree(installedDir);
        ASSERT_FALSE(installedBefore.isEmpty()) << "the sample installed tree is empty";
        ASSERT_NO_FATAL_FAILURE(writeProfile({}));
        // Until a server is started the settings name a port nobody listens on.
        writeSettings("http://127.0.0.1:9");
    }

    // A copy of the sample server tree the test may change.
    void useServerCopy()
    {
        serverRoot = dir.filePath("server");
        ASSERT_TRUE(copyTree(kSamples + "/server", serverRoot)) << "copying the sample server tree failed";
    }

    // A server that cannot start fails the test with its log.
    void startServer(const FileServerFamily& family = kFileServerFamilies[0], const QString& slowPath = QString(),
                     int bytesPerSecond = 0)
    {
        server = family.make(serverRoot, slowPath, bytesPerSecond);
        ASSERT_TRUE(server->started()) << family.name << " did not start:\n" << qPrintable(server->log());
        writeSettings(server->baseUrl().toLatin1());
    }

    void writeSettings(const QByteArray& url)
    {
        writeText(dir.filePath("host-run/config/download.cfg"), "[Address]\r\nPath=" + url + "\r\n" + signature);
    }

    // The sample profile, with some of its keys replaced.
    void writeProfile(const QJsonObject& changes)
    {
        QJsonObject profile = QJsonDocument::fromJson(readFile(kSamples + "/host-profile.json")).object();
        ASSERT_FALSE(profile.isEmpty()) << "the sample profile does not read";
        for (auto it = changes.begin(); it != changes.end(); ++it)
            profile.insert(it.key(), it.value());
        writeText(dir.filePath("host-profile.json"), QJsonDocument(profile).toJson());
    }

    void runHost(const QByteArray& script, WholeRun& result, const QStringList& moduleArguments = {})
    {
        static_cast<HostRun&>(result) = runModuleHost(hostArguments(script) + moduleArguments, hostEnvironment());
        result.log = hostLog();
        ASSERT_NE(result.exitCode, -1) << "module-host did not start or crashed\n" << qPrintable(result.transcript());
    }

    void startHost(QProcess& process, const QByteArray& script)
    {
        process.setProcessChannelMode(QProcess::MergedChannels);
        ASSERT_TRUE(startModuleHost(process, hostArguments(script), hostEnvironment()))
            << "module-host did not start: " << qPrintable(process.errorString());
    }

    // The automatic run started with quotes.so.gz served slowly, until
    // quotes.so.gz, fetched after core.so.gz, has begun to arrive.
    void startRunHalfWay(QProcess& host, const FileServerFamily& family, int bytesPerSecond)
    {
        ASSERT_NO_FATAL_FAILURE(startServer(family, "/files/quotes.so.gz", bytesPerSecond));
        ASSERT_NO_FATAL_FAILURE(startHost(host, kAutomaticScript));
        ASSERT_TRUE(waitFor([&] {
            host.readAll();
            return QFileInfo(downloadDir + "/quotes.so.gz").size() > 4096
                && requestedPaths().contains("/files/core.so.gz");
        })) << "quotes.so.gz never began arriving after core.so.gz\n"
            << qPrintable(server->accessLog().join('\n'));
    }

    QString hostLog() const { return QString::fromUtf8(readFile(dir.filePath("host.log"))); }

    // Headless, on the script, with the module's log in host.log.
    QStringList hostArguments(const QByteArray& script)
    {
        QFile::remove(dir.filePath("host.log"));
        writeText(dir.filePath("script.txt"), script);
        return {"--headless", "--script-timeout", "120", "--log", dir.filePath("host.log"),
                "--script",   dir.filePath("script.txt"),            dir.filePath("host-profile.json")};
    }

    static QProcessEnvironment hostEnvironment()
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("VELMORA_UPDATER", DM_UPDATER);
        environment.insert("QT_QPA_PLATFORM", "offscreen");
        return environment;
    }

    // Paths the server was asked for, in order.
    QStringList requestedPaths() const
    {
        QStringList paths;
        for (const QString& line : server->accessLog())
            paths << pathOf(line);
        return paths;
    }

    static QString pathOf(const QString& accessLogLine)
    {
        return QUrl(accessLogLine.section('|', 0, 0).section(' ', 1, 1)).path();
    }

    // Every installed file: the updated ones as given, all others as they were.
    void expectInstalled(const FileTree& updated)
    {
        FileTree expected = installedBefore;
        for (auto it = updated.begin(); it != updated.end(); ++it)
            expected.insert(it.key(), it.value());
        const FileTree after = readTree(installedDir);
        EXPECT_EQ(expected.keys(), after.keys());
        for (auto it = expected.begin(); it != expected.end(); ++it)
            EXPECT_TRUE(after.value(it.key()) == it.value())
                << qPrintable(it.key()) << (updated.contains(it.key()) ? " is not the server's file" : " changed")
                << "; it starts with: " << after.value(it.key()).left(24).constData();
    }

    QTemporaryDir dir;
    QString installedDir = dir.filePath("host-run/installed");
    QString downloadDir = dir.filePath("host-run/download");
    QString serverRoot = kSamples + "/server";
    QByteArray signature;  // the settings' [Signature] section, if any
    FileTree installedBefore;
    std::unique_ptr<FileServer> server;
};
