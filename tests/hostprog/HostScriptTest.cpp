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
    const int at = lines.indexOf(QStringLiteral("> ") + command);
    if (at < 0)
        return {QStringLiteral("<no command %1>").arg(command)};
    QStringList printed;
    for (int i = at + 1; i < lines.size() && !lines[i].startsWith(QLatin1String("> ")); ++i) {
        if (!lines[i].startsWith(QLatin1String("module-host: ")))
            printed << lines[i];
    }
    return printed;
}

class HostScriptTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        publishSampleServer(serverRoot, 300);
        // Until a test starts its server, the settings name a port nobody
        // listens on, so that nothing leaves the machine.
        QDir().mkpath(dir.filePath("run/config"));
        writeSettings("http://127.0.0.1:9");
    }

    void writeSettings(const QByteArray& url)
    {
        writeText(dir.filePath("run/config/download.cfg"), "[Address]\r\nPath=" + url + "\r\n");
    }

    void startNginx()
    {
        nginx = std::make_unique<NginxServer>(serverRoot);
        ASSERT_TRUE(nginx->started()) << nginx->log().toStdString();
        writeSettings(nginx->baseUrl().toLatin1());
    }

    // Runs the host on the script (or, with "--script -" in extra, on input) to its end.
    HostRun run(const QByteArray& script, bool online = true, const QStringList& extra = {},
                const QByteArray& input = QByteArray())
    {
        const QString scriptPath = dir.filePath("script.txt"), profile = dir.filePath("profile.json");
        writeText(scriptPath, script);
        writeText(profile, QByteArray(R"({"folders": {"2": "run/config", "101": "run/download"}, "online": )")
                               + (online ? "true" : "false") + R"(, "installedConfigurations": [
            {"name": "Standard", "version": "3.3.8", "current": true, "modules": [
             {"name": "charts.so", "version": "1.4.0"}, {"name": "news.so", "version": "1.0.0"},
             {"name": "quotes.so", "version": "2.0.0"}]}]})");
        QStringList arguments = QStringList{"--headless", "--log", dir.filePath("host.log")} + extra;
        if (!extra.contains("--script"))
            arguments << "--script" << scriptPath;
        arguments << profile;
        // These runs are about the script and the window: whatever the
        // machine has installed, the installation that follows finds no
        // updater and says so.
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("VELMORA_UPDATER"), dir.filePath("no-updater"));
        return runModuleHost(arguments, environment, input);
    }

    QTemporaryDir dir;
    const QString serverRoot = dir.filePath("server"), downloadDir = dir.filePath("run/download");
    std::unique_ptr<NginxServer> nginx;
};

// A user's session, command by command: off-line the menu entry opens
// nothing; on-line the window opens on the offered rows and closes; opened
// again, two rows are ticked and fetched, and what the window shows is
// printed. Which files such a run fetches and installs is the whole-run
// tests' business.
TEST_F(HostScriptTest, ASessionPrintsTheWindowTheTreeTheFilesAndTheState)
{
    startNginx();
    const QString shot = dir.filePath("shots/updates.png");
    const HostRun result = run("# off-line first, then on-line a user looks, closes, comes back and\n"
                               "# fetches two updates\n"
                               "menu\nprint window\nonline 1\nopen\nwait-lists\nprint window\nprint tree\n"
                               "press close\nprint window\n\nopen\nwait-lists\ntick charts.so\n"
                               "tick orders.so\nprint tree\npress start\nwait-log Download complete\n"
                               "print status\nprint files " + downloadDir.toUtf8() + "\nprint state\n"
                               "screenshot " + shot.toUtf8() + "\npress close\n",
                               /*online=*/false);
    // With no updater the run ends in the "Update failed" box, left open by a
    // script without an answer: the window behind it is out of a user's reach.
    ASSERT_EQ(result.exitCode, 6) << qPrintable(result.out + result.err);
    EXPECT_TRUE(result.err.contains(QStringLiteral(
        "script line 24: press close: the Updates window is behind \"Error\"; answer or close it first")))
        << qPrintable(result.err);
    EXPECT_EQ(printedBy(result.out, QStringLiteral("menu")), QStringList());
    EXPECT_EQ(result.out.split('\n').filter(QRegExp(QStringLiteral("^window: "))),
              QStringList({"window: hidden", "window: shown", "window: hidden"}))
        << qPrintable(result.out);
    EXPECT_TRUE(result.out.contains(QStringLiteral("module-host: code 3529 to the module")));

    // The offered rows: the newer configuration with its newer module, the
    // newer and the new module; news.so is installed at the offered version.
    // Ticked, the same rows show it.
    const QStringList tree = {"[ ] Standard |  | Standard configuration |  | 3.4.0",
                        "    [ ] quotes.so | 12 kb | 2026-11-01 | 3.3.8 | 2.1.0",
                        "[ ] charts.so | 20 kb | 2026-10-01 | 3.3.8 | 1.5.0",
                        "[ ] orders.so | 300 kb | 2026-11-10 | 3.3.8 | 4.0.0"};
    EXPECT_EQ(printedBy(result.out, QStringLiteral("print tree")), tree) << qPrintable(result.out);
    const QString ticked = result.out.left(result.out.indexOf("> press start\n")).section("> print tree", -1);
    for (const QString& row : {tree[2], tree[3]})
        EXPECT_TRUE(ticked.contains(QString(row).replace("[ ]", "[x]"))) << qPrintable(ticked);

    // The listing names the fetched files with their sizes on disk.
    const QStringList listed = printedBy(result.out, QStringLiteral("print files ") + downloadDir);
    for (const char* name : {"charts.so.gz", "orders.so.gz"}) {
        const QString size = QString::number(QFileInfo(serverRoot + "/files/" + name).size());
        EXPECT_EQ(listed.filter(QRegExp(QStringLiteral("%1.* %2$").arg(name, size))).size(), 1)
            << name << ": " << qPrintable(listed.join('\n'));
    }
    EXPECT_TRUE(listed.filter(QStringLiteral("news.so")).isEmpty());

    // The status returned to idle, the state file records both files and the
    // picture shows the window.
    const QStringList status = printedBy(result.out, QStringLiteral("print status"));
    EXPECT_EQ(status.size(), 2);
    EXPECT_EQ(status.value(0), QStringLiteral("status: "));
    const QString state = printedBy(result.out, QStringLiteral("print state")).join('\n');
    EXPECT_TRUE(state.contains(QStringLiteral("charts.so")) && state.contains(QStringLiteral("orders.so")))
        << qPrintable(state);
    EXPECT_EQ(QImage(shot).size(), QSize(550, 420));
}

// The automatic mode, switched on in the state file with no delay and no
// window: the dialog object's timer starts the run, the module asks its
// question box, and the files arrive while the window stays hidden. The
// i386 run starts module-host for this one (scripts/test-i386).
TEST_F(HostScriptTest, AnAutomaticRunAsksItsQuestionAndFetchesWithoutTheWindow)
{
    startNginx();
    writeAutomaticStart(downloadDir, false);
    const HostRun result = run("answer yes\nwait-box\nwait-log Download complete\nprint window\n");
    ASSERT_EQ(result.exitCode, 0) << qPrintable(result.out + result.err);
    // The run goes on into installation, which has no updater program here.
    EXPECT_EQ(result.boxes(), QStringList({QStringLiteral("box: Updates found | Download new version?"),
                                           QStringLiteral("box: Error | Update failed")}));
    EXPECT_TRUE(result.out.contains(QStringLiteral("window: hidden")));
    const QString log = QString::fromUtf8(readFile(dir.filePath("host.log")));
    EXPECT_TRUE(log.contains(QStringLiteral("Download complete: 3 file(s) ready to install"))) << qPrintable(log);
}

// A script is checked line by line before the library is loaded; a command
// that cannot run stops the host there, and a wait that never ends runs into
// the time limit: each names the line. "quit" gives the host's exit code.
TEST_F(HostScriptTest, WrongScriptsAndEndlessWaitsStopNamingTheLine)
{
    const struct {
        const char* script;
        int exitCode;
        const char* error;
        bool loaded;
    } cases[] = {
        {"quit 3\n", 3, "", true},
        {"open\n# fine so far\nfrobnicate now\n", 6, "script line 3: unknown command: frobnicate now", false},
        {"press go\n", 6, "script line 1: press start, stop, refresh or close: press go", false},
        {"answer maybe\n", 6, "script line 1: answer yes or no: answer maybe", false},
        {"online 2\n", 6, "script line 1: online 0 or 1: online 2", false},
        {"sleep soon\n", 6, "script line 1: sleep needs milliseconds: sleep soon", false},
        {"print nothing\n", 6, "script line 1: print tree, status, state, window or files DIR: print nothing",
         false},
        {"tick\n", 6, "script line 1: needs an argument: tick", false},
        {"open now\n", 6, "script line 1: takes no argument: open now", false},
        {"print tree\n", 6, "script line 1: print tree: the Updates window is not open", true},
    };
    for (const auto& c : cases) {
        const HostRun result = run(c.script);
        EXPECT_EQ(result.exitCode, c.exitCode) << c.script;
        EXPECT_TRUE(result.err.contains(QString::fromLatin1(c.error))) << qPrintable(result.err);
        EXPECT_EQ(result.out.contains(QStringLiteral("module-host: loaded")), c.loaded) << c.script;
    }

    HostRun result =
        run("sleep 10\nwait-log this line is never logged\nquit\n", true, {"--script-timeout", "1"});
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_TRUE(result.err.contains(QStringLiteral(
        "script timed out after 1 s, waiting at line 2: wait-log this line is never logged")))
        << qPrintable(result.err);
    EXPECT_FALSE(result.out.contains(QStringLiteral("> quit")));

    startNginx();
    result = run(QByteArray(), true, {"--script", "-"}, "open\nwait-lists\ntick nosuch.so\nprint tree\n");
    EXPECT_EQ(result.exitCode, 6);
    EXPECT_TRUE(result.err.contains("script line 3: tick nosuch.so: no row named \"nosuch.so\""))
        << qPrintable(result.err);
    EXPECT_TRUE(result.out.contains(QStringLiteral("> tick nosuch.so")));
    EXPECT_FALSE(result.out.contains(QStringLiteral("> print tree")));
}

}  // namespace
