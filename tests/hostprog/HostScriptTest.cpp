// The built module-host program running scripts against the real module and a
// real update server (nginx on loopback): whole updates as a user does them
// in the "Updates" window, boxes answered, the connection switched, and
// scripts that are wrong. Every assertion is about what the program prints or
// leaves on disk.
#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "ModuleHostRun.h"
#include "support/SampleUpdateServer.h"

namespace {

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
        publishSampleServer(serverRoot, 300);
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

    // Runs the host on the script to its end.
    HostRun run(const QByteArray& script, bool online = true, const QStringList& extra = {},
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
        // These runs are about the script and the window: whatever the
        // machine has installed, the installation that follows finds no
        // updater and says so.
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("VELMORA_UPDATER"), dir.filePath(QStringLiteral("no-updater")));
        return runModuleHost(arguments, environment, input);
    }

    QString hostLog() const { return QString::fromUtf8(readFile(dir.filePath("host.log"))); }

    QTemporaryDir dir;
    QString serverRoot;
    QString downloadDir;
    std::unique_ptr<NginxServer> nginx;
};

// A user's session, command by command: off-line the menu entry opens
// nothing; on-line the window opens on the offered rows and closes; opened
// again, two rows are ticked and fetched, and what the window shows is
// printed. Which files such a run
// fetches and installs is the whole-run tests' business.
TEST_F(HostScriptTest, ASessionPrintsTheWindowTheTreeTheFilesAndTheState)
{
    startNginx();
    const QString shot = dir.filePath(QStringLiteral("shots/updates.png"));
    const HostRun result = run(
        "# off-line first, then on-line a user looks, closes, comes back and\n"
        "# fetches two updates\n"
        "menu\n"
        "print window\n"
        "online 1\n"
        "open\n"
        "wait-lists\n"
        "print window\n"
        "print tree\n"
        "press close\n"
        "print window\n"
        "\n"
        "open\n"
        "wait-lists\n"
        "tick charts.so\n"
        "tick orders.so\n"
        "print tree\n"
        "press start\n"
        "wait-log Download complete\n"
        "print status\n"
        "print files " + downloadDir.toUtf8() + "\n"
        "print state\n"
        "screenshot " + shot.toUtf8() + "\n"
        "press close\n",
        /*online=*/false);
    // With no updater the run ends in the "Update failed" box, left open by a
    // script without an answer: the window behind it is out of a user's reach.
    ASSERT_EQ(result.exitCode, 6) << qPrintable(result.out + result.err);
    EXPECT_TRUE(result.err.contains(QStringLiteral(
        "script line 24: press close: the Updates window is behind \"Error\"; answer or close it first")))
        << qPrintable(result.err);
    EXPECT_EQ(printedBy(result.out, QStringLiteral("menu")), QStringList());
    const QStringList windows = result.out.split('\n').filter(QRegExp(QStringLiteral("^window: ")));
    EXPECT_EQ(windows, QStringList({"window: hidden", "window: shown", "window: hidden"}))
        << qPrintable(result.out);
    EXPECT_TRUE(result.out.contains(QStringLiteral("module-host: code 3529 to the module")));

    // The offered rows: the newer configuration with its newer module, the
    // newer and the new module; news.so is installed at the offered version.
    EXPECT_EQ(printedBy(result.out, QStringLiteral("print tree")), kOfferedTree)
        << qPrintable(result.out);

    // Echoes in order, the ticks shown, the run finished in the log.
    const int openAt = result.out.lastIndexOf(QStringLiteral("> open\n"));
    const int startAt = result.out.indexOf(QStringLiteral("> press start\n"));
    EXPECT_TRUE(openAt >= 0 && startAt > openAt) << qPrintable(result.out);
    const QString ticked = result.out.mid(startAt - 400, 400);
    EXPECT_TRUE(ticked.contains(QStringLiteral("[x] charts.so"))) << qPrintable(ticked);
    EXPECT_TRUE(ticked.contains(QStringLiteral("[x] orders.so"))) << qPrintable(ticked);
    EXPECT_TRUE(hostLog().contains(QStringLiteral("Download complete: 2 file(s) ready to install")))
        << qPrintable(hostLog());

    // The listing names the fetched files with their sizes on disk.
    const QStringList listed = printedBy(result.out, QStringLiteral("print files ") + downloadDir);
    for (const char* name : {"charts.so.gz", "orders.so.gz"}) {
        const QStringList found = listed.filter(QString::fromLatin1(name));
        ASSERT_EQ(found.size(), 1) << name << ": " << qPrintable(listed.join('\n'));
        EXPECT_TRUE(found.first().endsWith(
            QLatin1Char(' ') + QString::number(QFileInfo(serverRoot + QStringLiteral("/files/") + name).size())))
            << qPrintable(found.first());
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

// The automatic mode, switched on in the state file with no delay and no
// window: the dialog object's timer starts the run, the module asks its
// question box, and the files arrive while the window stays hidden.
TEST_F(HostScriptTest, AnAutomaticRunAsksItsQuestionAndFetchesWithoutTheWindow)
{
    startNginx();
    writeAutomaticStart(downloadDir, false);
    const HostRun result = run(
        "answer yes\n"
        "wait-box\n"
        "wait-log Download complete\n"
        "print window\n");
    ASSERT_EQ(result.exitCode, 0) << qPrintable(result.out + result.err);

    // The run goes on into installation, which has no updater program here.
    EXPECT_EQ(result.boxes(), QStringList({QStringLiteral("box: Updates found | Download new version?"),
                                           QStringLiteral("box: Error | Update failed")}));
    EXPECT_TRUE(result.out.contains(QStringLiteral("window: hidden")));
    EXPECT_TRUE(hostLog().contains(QStringLiteral("Download complete: 3 file(s) ready to install")))
        << qPrintable(hostLog());
}

TEST_F(HostScriptTest, WrongScriptsStopNamingTheLine)
{
    // Checked before the library is loaded.
    // "quit" gives the host's exit code.
    HostRun result = run("quit 3\n");
    EXPECT_EQ(result.exitCode, 3) << qPrintable(result.err);

    result = run("open\n# fine so far\nfrobnicate now\n");
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
    const HostRun result =
        run("sleep 10\nwait-log this line is never logged\nquit\n", true,
            {QStringLiteral("--script-timeout"), QStringLiteral("1")});
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_TRUE(result.err.contains(QStringLiteral(
        "script timed out after 1 s, waiting at line 2: wait-log this line is never logged")))
        << qPrintable(result.err);
    EXPECT_FALSE(result.out.contains(QStringLiteral("> quit")));
}

}  // namespace
