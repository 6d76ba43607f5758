// module-host running scripts against the real module and nginx serving the
// sample update server; which files whole runs install is the e2e tests' business.
#include <tuple>

#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "ModuleHostRun.h"
#include "support/SampleUpdateServer.h"

namespace {

// The lines a command printed, between its first "> command" echo and the next.
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
        QDir().mkpath(dir.filePath("run/config"));
    }

    void startNginx()
    {
        nginx = std::make_unique<NginxServer>(serverRoot);
        ASSERT_TRUE(nginx->started()) << nginx->log().toStdString();
        serverUrl = nginx->baseUrl().toLatin1();
    }

    // The script is read from input; the e2e tests' come from files.
    HostRun run(const QByteArray& script, bool online = true, const QStringList& extra = {})
    {
        const QString profile = dir.filePath("profile.json");
        writeText(dir.filePath("run/config/download.cfg"), "[Address]\r\nPath=" + serverUrl + "\r\n");
        writeText(profile, QByteArray(R"({"folders": {"2": "run/config", "101": "run/download"}, "online": )")
                               + (online ? "true" : "false") + R"(, "installedConfigurations": [
            {"name": "Standard", "version": "3.3.8", "current": true, "modules": [
             {"name": "charts.so", "version": "1.4.0"}, {"name": "news.so", "version": "1.0.0"},
             {"name": "quotes.so", "version": "2.0.0"}]}]})");
        const QStringList arguments = QStringList{"--headless", "--log", dir.filePath("host.log"), "--script", "-"}
            + extra;
        // Whatever the machine has installed, the installation that follows
        // a download finds no updater and says so in its "Update failed" box.
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("VELMORA_UPDATER"), dir.filePath("no-updater"));
        return runModuleHost(arguments + QStringList{profile}, environment, script);
    }

    QTemporaryDir dir;
    const QString serverRoot = dir.filePath("server"), downloadDir = dir.filePath("run/download");
    std::unique_ptr<NginxServer> nginx;
    QByteArray serverUrl = "http://127.0.0.1:9";  // until a test starts its server, nothing leaves the machine
};

TEST_F(HostScriptTest, ASessionPrintsTheWindowTheTreeAndTheStatus)
{
    startNginx();
    const QString shot = dir.filePath("shots/updates.png");
    // Off-line the menu entry opens nothing; on-line a user looks, closes,
    // comes back and fetches two updates.
    const HostRun result = run("# a comment\n\n"
                               "menu\nprint window\nonline 1\nopen\nwait-lists\nprint window\nprint tree\n"
                               "press close\nprint window\n\nopen\nwait-lists\ntick charts.so\n"
                               "tick orders.so\nprint tree\npress start\nwait-log Download complete\n"
                               "print status\nscreenshot " + shot.toUtf8() + "\npress close\n",
                               /*online=*/false);
    // The "Update failed" box, left open by a script without an answer, keeps
    // the window behind it out of a user's reach.
    ASSERT_EQ(result.exitCode, 6) << qPrintable(result.out + result.err);
    EXPECT_TRUE(result.err.contains(QStringLiteral(
        "script line 22: press close: the Updates window is behind \"Error\"; answer or close it first")))
        << qPrintable(result.err);
    EXPECT_EQ(result.out.split('\n').filter(QRegExp(QStringLiteral("^window: "))),
              QStringList({"window: hidden", "window: shown", "window: hidden"}))
        << qPrintable(result.out);

    // news.so is installed at the offered version.
    QStringList tree = {"[ ] Standard |  | Standard configuration |  | 3.4.0",
                        "    [ ] quotes.so | 12 kb | 2026-11-01 | 3.3.8 | 2.1.0",
                        "[ ] charts.so | 20 kb | 2026-10-01 | 3.3.8 | 1.5.0",
                        "[ ] orders.so | 300 kb | 2026-11-10 | 3.3.8 | 4.0.0"};
    EXPECT_EQ(printedBy(result.out, QStringLiteral("print tree")), tree) << qPrintable(result.out);
    tree[2].replace("[ ]", "[x]");
    tree[3].replace("[ ]", "[x]");
    EXPECT_EQ(printedBy(result.out.mid(result.out.indexOf("> tick")), QStringLiteral("print tree")), tree);
    EXPECT_EQ(printedBy(result.out, QStringLiteral("print status")).value(0), QStringLiteral("status: "));
    EXPECT_EQ(QImage(shot).size(), QSize(550, 420));
}

// The automatic mode switched on in the state file, with no delay and no
// window. The i386 run starts module-host for this one.
TEST_F(HostScriptTest, AnAutomaticRunAsksItsQuestionAndFetchesWithoutTheWindow)
{
    startNginx();
    writeAutomaticStart(downloadDir, false);
    const HostRun result = run("answer yes\nwait-box\nwait-log Download complete\nprint window\n"
                               "print files " + downloadDir.toUtf8() + "\nprint state\n");
    ASSERT_EQ(result.exitCode, 0) << qPrintable(result.out + result.err);
    // The run goes on into installation, which has no updater program here.
    EXPECT_EQ(result.boxes(), QStringList({QStringLiteral("box: Updates found | Download new version?"),
                                           QStringLiteral("box: Error | Update failed")}));
    EXPECT_TRUE(result.out.contains(QStringLiteral("window: hidden")));
    const QStringList listed = printedBy(result.out, QStringLiteral("print files ") + downloadDir);
    const QString state = printedBy(result.out, QStringLiteral("print state")).join('\n');
    for (const char* name : {"charts.so", "orders.so", "quotes.so"}) {
        const QString size = QString::number(QFileInfo(serverRoot + "/files/" + name + ".gz").size());
        EXPECT_EQ(listed.filter(QRegExp(QStringLiteral("^%1\\.gz %2$").arg(name, size))).size(), 1)
            << name << ": " << qPrintable(listed.join('\n'));
        EXPECT_TRUE(state.contains(QString::fromLatin1(name))) << qPrintable(state);
    }
}

// A script is checked before the library is loaded; a command that cannot run
// and a wait past the time limit stop the host naming the line. "quit N" exits N.
TEST_F(HostScriptTest, WrongScriptsAndEndlessWaitsStopNamingTheLine)
{
    startNginx();
    // script, exit code, error, whether the library was loaded
    const std::tuple<const char*, int, const char*, bool> cases[] = {
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
        {"open\nwait-lists\ntick nosuch.so\n", 6, "script line 3: tick nosuch.so: no row named \"nosuch.so\"", true},
    };
    for (const auto& [script, exitCode, error, loaded] : cases) {
        const HostRun result = run(script);
        EXPECT_EQ(result.exitCode, exitCode) << script;
        EXPECT_TRUE(result.err.contains(QString::fromLatin1(error))) << qPrintable(result.err);
        EXPECT_EQ(result.out.contains(QStringLiteral("module-host: loaded")), loaded) << script;
    }

    const HostRun result =
        run("sleep 10\nwait-log this line is never logged\nquit\n", true, {"--script-timeout", "1"});
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_TRUE(result.err.contains(QStringLiteral(
        "script timed out after 1 s, waiting at line 2: wait-log this line is never logged")))
        << qPrintable(result.err);
}

}  // namespace
