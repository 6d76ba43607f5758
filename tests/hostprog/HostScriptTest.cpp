// The built module-host program running scripts against the real module and a
// real update server (nginx on loopback): whole updates as a user does them
// in the "Updates" window, boxes answered, the connection switched, and
// scripts that are wrong. Every assertion is about what the program prints or
// leaves on disk.
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QUrl>
#include <gtest/gtest.h>

#include "transfer/support/RealServers.h"

namespace {

struct ScriptRun {
    int exitCode = -1;
    QString out;
    QString err;
};

QByteArray patternBytes(int size, char seed)
{
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i)
        bytes[i] = char(seed + (qint64(i) * 7919) % 251);
    return bytes;
}

QByteArray fileBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

// The lines a command printed: those after its "> command" echo up to the
// next echo.
QStringList printedBy(const QString& out, const QString& command)
{
    const QStringList lines = out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QStringList printed;
    const int at = lines.indexOf(QStringLiteral("> ") + command);
    if (at < 0)
        return {QStringLiteral("<no command %1>").arg(command)};
    for (int i = at + 1; i < lines.size() && !lines[i].startsWith(QLatin1String("> ")); ++i) {
        if (!lines[i].startsWith(QLatin1String("module-host: ")))
            printed << lines[i];
    }
    return printed;
}

const QStringList kOfferedTree = {
    "[ ] Standard |  | Standard configuration |  | 3.4.0",
    "    [ ] quotes.so | 12 kb | 2026-11-01 | 3.3.8 | 2.1.0",
    "[ ] charts.so | 20 kb | 2026-10-01 | 3.3.8 | 1.5.0",
    "[ ] orders.so | 300 kb | 2026-11-10 | 3.3.8 | 4.0.0",
};

class HostScriptTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        serverRoot = dir.filePath(QStringLiteral("server"));
        downloadDir = dir.filePath(QStringLiteral("run/download"));
        publishServer();
        // Until a test starts its server, the settings name a port nobody
        // listens on, so that nothing leaves the machine.
        writeSettings("http://127.0.0.1:9");
    }

    void writeSettings(const QByteArray& url)
    {
        QDir().mkpath(dir.filePath(QStringLiteral("run/config")));
        writeText(dir.filePath(QStringLiteral("run/config/download.cfg")),
                  "[Address]\r\nPath=" + url + "\r\n");
    }

    void put(const QString& relative, const QByteArray& bytes)
    {
        const QString path = serverRoot + relative;
        QDir().mkpath(QFileInfo(path).path());
        writeText(path, bytes);
    }

    // One configuration newer than the installed one, with its own module
    // list; a general list with a newer module, one at the installed
    // version and one the terminal does not have.
    void publishServer()
    {
        put("/configDesc.txt",
            "Standard,3.4.0,/configs/standard-modules.txt,/desc/standard.txt,Standard configuration\n");
        put("/configs/standard-modules.txt",
            "quotes.so,2.1.0,3.3.8,1,/desc/quotes.txt,/files/quotes.so.gz,2026-11-01,12\n");
        put("/moduleDesc.txt",
            "charts.so,1.5.0,3.3.8,1,/desc/charts.txt,/files/charts.so.gz,2026-10-01,20\n"
            "news.so,1.0.0,3.3.8,1,/desc/news.txt,/files/news.so.gz,2026-09-01,5\n"
            "orders.so,4.0.0,3.3.8,1,/desc/orders.txt,/files/orders.so.gz,2026-11-10,300\n");
        put("/desc/standard.txt", "The standard set of modules.");
        put("/desc/charts.txt", "Charts.");
        put("/desc/orders.txt", "Orders of every kind.");
        put("/files/quotes.so.gz", patternBytes(12 * 1024, 'q'));
        put("/files/charts.so.gz", patternBytes(20 * 1024, 'c'));
        put("/files/news.so.gz", patternBytes(5 * 1024, 'n'));
        put("/files/orders.so.gz", patternBytes(300 * 1024, 'o'));
    }

    void startNginx()
    {
        nginx = std::make_unique<NginxServer>(serverRoot);
        ASSERT_TRUE(nginx->started()) << nginx->errorLog().toStdString();
        writeSettings(nginx->baseUrl().toLatin1());
    }

    QString writeProfile(bool online)
    {
        const QString path = dir.filePath(QStringLiteral("profile.json"));
        writeText(path, QByteArray(R"({
            "folders": {"2": "run/config", "101": "run/download"},
            "workFolder": "run/user",
            "languages": [{"name": "English", "current": true}],
            "online": )") + (online ? "true" : "false") + R"(,
            "installedConfigurations": [
              {"name": "Standard", "version": "3.3.8", "current": true,
               "modules": [{"name": "charts.so", "version": "1.4.0"},
                           {"name": "news.so", "version": "1.0.0"},
                           {"name": "quotes.so", "version": "2.0.0"}]}
            ]
        })");
        return path;
    }

    // Runs the host on the script to its end: the host's own time limit ends
    // a run that hangs.
    ScriptRun run(const QByteArray& script, bool online = true, const QStringList& extra = {},
                  const QByteArray& input = QByteArray())
    {
        const QString scriptPath = dir.filePath(QStringLiteral("script.txt"));
        writeText(scriptPath, script);
        QStringList arguments{QStringLiteral("--headless"), QStringLiteral("--log"),
                              dir.filePath(QStringLiteral("host.log"))};
        arguments << extra;
        if (!extra.contains(QStringLiteral("--script")))
            arguments << QStringLiteral("--script") << scriptPath;
        arguments << writeProfile(online);
        QProcess process;
        // These runs are about fetching: whatever the machine has installed,
        // the installation that follows finds no updater and says so.
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("VELMORA_UPDATER"),
                           dir.filePath(QStringLiteral("no-updater")));
        process.setProcessEnvironment(environment);
        process.start(QStringLiteral(DM_MODULE_HOST), arguments);
        process.write(input);
        process.closeWriteChannel();
        ScriptRun result;
        if (!process.waitForFinished(-1) || process.exitStatus() != QProcess::NormalExit)
            return result;
        result.exitCode = process.exitCode();
        result.out = QString::fromUtf8(process.readAllStandardOutput());
        result.err = QString::fromUtf8(process.readAllStandardError());
        return result;
    }

    QString hostLog() const { return QString::fromUtf8(fileBytes(dir.filePath("host.log"))); }

    // Paths of the update files nginx was asked for, in order.
    QStringList fileRequests() const
    {
        QStringList paths;
        for (const QString& line : nginx->accessLog()) {
            const QString path = QUrl(line.section(QLatin1Char('|'), 0, 0).section(' ', 1, 1)).path();
            if (path.startsWith(QLatin1String("/files/")))
                paths << path;
        }
        return paths;
    }

    QTemporaryDir dir;
    QString serverRoot;
    QString downloadDir;
    std::unique_ptr<NginxServer> nginx;
};

TEST_F(HostScriptTest, ManualRunFetchesExactlyTheTickedFiles)
{
    startNginx();
    const QString shot = dir.filePath(QStringLiteral("shots/updates.png"));
    const ScriptRun result = run(
        "# a user picks two updates and fetches them\n"
        "open\n"
        "wait-lists\n"
        "print tree\n"
        "\n"
        "tick charts.so\n"
        "tick orders.so\n"
        "print tree\n"
        "press start\n"
        "wait-log Download complete\n"
        "print status\n"
        "print files " + downloadDir.toUtf8() + "\n"
        "print state\n"
        "screenshot " + shot.toUtf8() + "\n"
        "quit\n");
    ASSERT_EQ(result.exitCode, 0) << qPrintable(result.out + result.err);

    // The offered rows: the newer configuration with its newer module, the
    // newer and the new module; news.so is installed at the offered version.
    EXPECT_EQ(printedBy(result.out, QStringLiteral("print tree")), kOfferedTree)
        << qPrintable(result.out);

    // Echoes in order, the ticks shown, the run finished in the log.
    const int openAt = result.out.indexOf(QStringLiteral("> open\n"));
    const int startAt = result.out.indexOf(QStringLiteral("> press start\n"));
    EXPECT_TRUE(openAt >= 0 && startAt > openAt) << qPrintable(result.out);
    const QString ticked = result.out.mid(startAt - 400, 400);
    EXPECT_TRUE(ticked.contains(QStringLiteral("[x] charts.so"))) << qPrintable(ticked);
    EXPECT_TRUE(ticked.contains(QStringLiteral("[x] orders.so"))) << qPrintable(ticked);
    EXPECT_TRUE(hostLog().contains(QStringLiteral("Download complete: 2 file(s) ready to install")))
        << qPrintable(hostLog());

    // Only the ticked files were fetched, and they arrived whole.
    QStringList requested = fileRequests();
    requested.removeDuplicates();
    requested.sort();
    EXPECT_EQ(requested, QStringList({"/files/charts.so.gz", "/files/orders.so.gz"}));
    const QStringList listed =
        printedBy(result.out, QStringLiteral("print files ") + downloadDir);
    for (const char* name : {"charts.so.gz", "orders.so.gz"}) {
        const QStringList found = listed.filter(QString::fromLatin1(name));
        ASSERT_EQ(found.size(), 1) << name << ": " << qPrintable(listed.join('\n'));
        const QString relative = found.first().section(QLatin1Char(' '), 0, 0);
        EXPECT_EQ(fileBytes(downloadDir + '/' + relative),
                  fileBytes(serverRoot + QStringLiteral("/files/") + name))
            << name;
    }
    EXPECT_TRUE(listed.filter(QStringLiteral("news.so")).isEmpty());

    // The status returned to idle, the state file records both files and the
    // picture shows the window.
    const QStringList status = printedBy(result.out, QStringLiteral("print status"));
    ASSERT_EQ(status.size(), 2);
    EXPECT_EQ(status[0], QStringLiteral("status: "));
    const QString state = printedBy(result.out, QStringLiteral("print state")).join('\n');
    EXPECT_TRUE(state.contains(QStringLiteral("charts.so")) && state.contains(QStringLiteral("orders.so")))
        << qPrintable(state);
    const QImage image(shot);
    EXPECT_EQ(image.size(), QSize(550, 420));
}

TEST_F(HostScriptTest, AFileMissingOnTheServerEndsInTheErrorBoxAnsweredYes)
{
    startNginx();
    QFile::remove(serverRoot + QStringLiteral("/files/orders.so.gz"));
    const ScriptRun result = run(
        "answer yes\n"
        "open\n"
        "wait-lists\n"
        "tick orders.so\n"
        "press start\n"
        "wait-box\n"
        "print status\n"
        "quit 3\n");
    ASSERT_EQ(result.exitCode, 3) << qPrintable(result.out + result.err);

    const QStringList boxes = result.out.split('\n').filter(QRegExp(QStringLiteral("^box: ")));
    ASSERT_EQ(boxes.size(), 1) << qPrintable(result.out);
    EXPECT_EQ(boxes.first(), QStringLiteral("box: Download error. | File(s) was not found on "
                                            "download server.\\r\\nPlease contact to support."));
    // The box came after the run had been tried again: the file was asked
    // for more than once before the user was told.
    EXPECT_GT(fileRequests().count(QStringLiteral("/files/orders.so.gz")), 1);
    EXPECT_FALSE(hostLog().contains(QStringLiteral("Download complete")));
    // Once the box is answered the run is over: the window is idle again,
    // showing the lists as far as they are fetched again by then.
    const QString status = printedBy(result.out, QStringLiteral("print status")).value(0);
    EXPECT_TRUE(status == QStringLiteral("status: ")
                || status == QStringLiteral("status: New modules not found"))
        << qPrintable(status);
}

// The automatic mode, switched on in the state file with no delay: the
// dialog object's timer starts a run without the window, the module asks its
// question box, and the newer and the new files arrive.
TEST_F(HostScriptTest, AnAutomaticRunAsksItsQuestionAndFetchesWithoutTheWindow)
{
    startNginx();
    QDir().mkpath(downloadDir);
    writeText(downloadDir + QStringLiteral("/download.rdd"),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<parameters format=\"1\">\n"
              "  <node name=\"ParametersDL\">\n"
              "    <node name=\"ParamAutoDL\">\n"
              "      <param name=\"AutoDownload\" value=\"1\"/>\n"
              "      <param name=\"ShowWindow\" value=\"0\"/>\n"
              "      <param name=\"DelayAutoStart\" value=\"0\"/>\n"
              "    </node>\n"
              "  </node>\n"
              "</parameters>\n");
    const ScriptRun result = run(
        "answer yes\n"
        "wait-box\n"
        "wait-log Download complete\n"
        "print window\n");
    ASSERT_EQ(result.exitCode, 0) << qPrintable(result.out + result.err);

    // The run goes on into installation, which has no updater program here.
    EXPECT_EQ(result.out.split('\n').filter(QRegExp(QStringLiteral("^box: "))),
              QStringList({QStringLiteral("box: Updates found | Download new version?"),
                           QStringLiteral("box: Error | Update failed")}));
    EXPECT_TRUE(result.out.contains(QStringLiteral("window: hidden")));
    EXPECT_TRUE(hostLog().contains(QStringLiteral("Download complete: 3 file(s) ready to install")))
        << qPrintable(hostLog());
    for (const char* name : {"charts.so.gz", "orders.so.gz", "quotes.so.gz"})
        EXPECT_EQ(fileBytes(downloadDir + '/' + name),
                  fileBytes(serverRoot + QStringLiteral("/files/") + name))
            << name;
    EXPECT_FALSE(QFile::exists(downloadDir + QStringLiteral("/news.so.gz")));
}

TEST_F(HostScriptTest, OffLineTheMenuEntryOpensNothingUntilTheHostGoesOnLine)
{
    startNginx();
    const ScriptRun result = run(
        "menu\n"
        "print window\n"
        "online 1\n"
        "open\n"
        "wait-lists\n"
        "print window\n"
        "print tree\n"
        "press close\n"
        "print window\n",
        /*online=*/false);
    ASSERT_EQ(result.exitCode, 0) << qPrintable(result.out + result.err);
    EXPECT_EQ(printedBy(result.out, QStringLiteral("menu")), QStringList());
    const QStringList lines = result.out.split('\n').filter(QRegExp(QStringLiteral("^window: ")));
    EXPECT_EQ(lines, QStringList({"window: hidden", "window: shown", "window: hidden"}))
        << qPrintable(result.out);
    EXPECT_EQ(printedBy(result.out, QStringLiteral("print tree")), kOfferedTree);
    EXPECT_TRUE(result.out.contains(QStringLiteral("module-host: code 3529 to the module")));
}

TEST_F(HostScriptTest, WrongScriptsStopNamingTheLine)
{
    // Checked before the library is loaded.
    ScriptRun result = run("open\n# fine so far\nfrobnicate now\n");
    EXPECT_EQ(result.exitCode, 6);
    EXPECT_TRUE(result.err.contains(QStringLiteral("script line 3: unknown command: frobnicate now")))
        << qPrintable(result.err);
    EXPECT_FALSE(result.out.contains(QStringLiteral("loaded")));

    for (const char* line : {"press go", "answer maybe", "online 2", "sleep soon", "print nothing",
                             "tick", "open now"}) {
        result = run(QByteArray(line) + "\n");
        EXPECT_EQ(result.exitCode, 6) << line;
        EXPECT_TRUE(result.err.contains(QStringLiteral("script line 1: "))) << qPrintable(result.err);
    }

    // A command that fails while running: no window open, then no such row.
    result = run("print tree\n");
    EXPECT_EQ(result.exitCode, 6);
    EXPECT_TRUE(result.err.contains(QStringLiteral("script line 1: print tree: the Updates window is not open")))
        << qPrintable(result.err);

    startNginx();
    // From standard input this time.
    result = run(QByteArray(), true, {QStringLiteral("--script"), QStringLiteral("-")},
                 "open\nwait-lists\ntick nosuch.so\nprint tree\n");
    EXPECT_EQ(result.exitCode, 6);
    EXPECT_TRUE(result.err.contains(QStringLiteral("script line 3: tick nosuch.so: no row named \"nosuch.so\"")))
        << qPrintable(result.err);
    EXPECT_TRUE(result.out.contains(QStringLiteral("> tick nosuch.so")));
    EXPECT_FALSE(result.out.contains(QStringLiteral("> print tree")));
}

TEST_F(HostScriptTest, AWaitThatNeverEndsRunsIntoTheTimeLimit)
{
    const ScriptRun result =
        run("sleep 10\nwait-log this line is never logged\nquit\n", true,
            {QStringLiteral("--script-timeout"), QStringLiteral("1")});
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_TRUE(result.err.contains(QStringLiteral(
        "script timed out after 1 s, waiting at line 2: wait-log this line is never logged")))
        << qPrintable(result.err);
    EXPECT_FALSE(result.out.contains(QStringLiteral("> quit")));
}

}  // namespace
