// module-host: the reference host. Loads the update module library, hands it
// the host callbacks, registers it (3007), tells it the host is ready (3004)
// and has it build its dialog object (3066). Then it runs a script of user
// actions (--script), prints a summary and exits (headless), or shows the
// main window until it is closed.
//
// Exit codes: 0 success, 1 bad command line or log file, 2 bad profile,
// 3 library cannot be loaded, 4 the module failed to start, 5 the script
// timed out, 6 the script is wrong or one of its commands failed, 7 the proxy
// test (--proxy-test) failed; a script's "quit N" exits with N.
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <vector>

#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QTimer>

#include "host/app/HostBridge.h"
#include "host/app/HostConsole.h"
#include "host/app/HostLogPrinter.h"
#include "host/app/HostOptions.h"
#include "host/app/HostProfile.h"
#include "host/app/HostProxyTest.h"
#include "host/app/HostScript.h"
#include "host/app/HostWindow.h"
#include "host/app/ModuleLoader.h"
#include "protocol/HostMessages.h"
#include "storage/RecordText.h"

namespace {

enum ExitCode { ExitOk = 0, ExitUsage = 1, ExitProfile = 2, ExitLibrary = 3, ExitModule = 4,
                ExitProxyTestFailed = 7 };

// Handed to Initialize and returned by the module as the kind of its
// registration: the module's slot in this host, which has only the one.
constexpr intptr_t kModuleSlot = 1;

bool hasDisplay()
{
    return !qEnvironmentVariableIsEmpty("DISPLAY")
        || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

// A terminal's folders exist before its modules ask for them.
void createProfileFolders(const HostProfile& profile)
{
    QStringList paths;
    for (const auto& entry : profile.folders())
        paths << entry.second;
    if (!profile.workFolder().isEmpty())
        paths << profile.workFolder();
    for (const QString& path : paths) {
        if (!QDir().mkpath(path))
            printHostError(QStringLiteral("cannot create folder %1").arg(path));
    }
}

void printModuleInfo(const ModuleLoader& loader, const MODULE_INFO& info)
{
    // The record keeps its three numbers in reverse order of the module's own.
    printHostLine(QStringLiteral("loaded %1: \"%2\" (%3) %4.%5.%6, context %7")
                      .arg(loader.path(), QString::fromLatin1(fieldBytes(info.name)),
                           QString::fromLatin1(fieldBytes(info.description)),
                           QString::number(info.numberFirst), QString::number(info.numberSecond),
                           QString::number(info.numberThird),
                           QString::fromLatin1(fieldBytes(info.contextName))));
}

QString quotedArguments(const std::vector<char*>& arguments)
{
    QStringList quoted;
    for (const char* argument : arguments) {
        if (argument)
            quoted << QLatin1Char('"') + QString::fromLocal8Bit(argument) + QLatin1Char('"');
    }
    return quoted.join(QLatin1Char(' '));
}

void printSummary(const HostBridge& bridge)
{
    if (!bridge.registered()) {
        printHostError(QStringLiteral("the module did not register (no code 3000)"));
        return;
    }
    const coreInterfaceRecord& record = bridge.registration();
    printHostLine(QStringLiteral("registered %1 (%2, %3) kind %4, %5 texts")
                      .arg(QString::fromLatin1(fieldBytes(record.name)),
                           QString::fromLatin1(fieldBytes(record.vendor)),
                           QString::fromLatin1(fieldBytes(record.key)),
                           QString::number(record.kind),
                           QString::number(bridge.textsRegistered())));
}

// Registration (3007) with the host's command line as the module sees it:
// the host's own name first, then the module arguments; then readiness
// (3004). The module passes an exception out of its readiness handler after
// logging it; the host reports it and gives up on the module.
bool startModule(const ModuleLoader& loader, std::vector<char*>& arguments)
{
    CModule* module = loader.getModule();
    printHostLine(QStringLiteral("code 3007 with argc %1: %2")
                      .arg(arguments.size() - 1)
                      .arg(quotedArguments(arguments)));
    try {
        loader.receiveMessage(module, HostMsg::CommandLine, intptr_t(arguments.size() - 1),
                              reinterpret_cast<intptr_t>(arguments.data()));
        loader.receiveMessage(module, HostMsg::HostReady, 0, 0);
    } catch (const std::exception& error) {
        printHostError(QStringLiteral("the module threw while starting: %1")
                           .arg(QString::fromLocal8Bit(error.what())));
        return false;
    } catch (...) {
        printHostError(QStringLiteral("the module threw while starting"));
        return false;
    }
    return true;
}

// What the connection settings' "Test" button of a terminal does: the module
// tries the profile's proxy against the update server and reports per server.
int runProxyTest(HostBridge& bridge, const HostProfile& profile, int seconds)
{
    const HostProxy& proxy = profile.proxy();
    printHostLine(QStringLiteral("proxy test through %1:%2, at most %3 s")
                      .arg(proxy.host, QString::number(proxy.port), QString::number(seconds)));
    mwiTesProxy record = proxyTestRecord(proxy, seconds);
    bridge.testProxy(&record);
    const QStringList lines = proxyTestReport(record);
    if (lines.isEmpty())
        printHostError(QStringLiteral("the module filled no proxy test result"));
    for (const QString& line : lines)
        printHostLine(line);
    return proxyTestPassed(record) ? ExitOk : ExitProxyTestFailed;
}

// The window's menu entry and on-line switch reach the module through the
// bridge; closing the window tells the module its dialog goes (3081) before
// the host quits.
void connectWindow(HostWindow& window, HostBridge& bridge)
{
    window.setOnline(bridge.online());
    bridge.setMenuEntryAdded([&window](const QString& text, int32_t id) {
        window.setModuleEntry(text, id);
    });
    window.entryPicked = [&bridge](int id) { bridge.pickMenuEntry(id); };
    window.onlineToggled = [&bridge](bool online) { bridge.setOnline(online); };
    window.closing = [&bridge] {
        bridge.closeDialog();
        QTimer::singleShot(0, QCoreApplication::instance(), &QCoreApplication::quit);
    };
}

}  // namespace

int main(int argc, char** argv)
{
    HostOptions options;
    if (!options.parse(argc, argv)) {
        printHostError(options.errorString());
        std::fprintf(stderr, "%s\n", qPrintable(HostOptions::usage()));
        return ExitUsage;
    }
    if (options.help()) {
        std::printf("%s\n", qPrintable(HostOptions::usage()));
        return ExitOk;
    }

    const bool headless = options.headless() || !hasDisplay();
    if (headless && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // Qt sees only the program name: the rest of the command line belongs to
    // the host and the module, and Qt would take options such as -style out
    // of the module's arguments.
    int qtArgc = 1;
    char* qtArgv[] = {argv[0], nullptr};
    QApplication application(qtArgc, qtArgv);
    // The host quits when its main window closes (after 3081) or its script
    // ends, never because the module's last window went.
    QApplication::setQuitOnLastWindowClosed(false);

    HostProfile profile;
    if (!profile.load(options.profilePath())) {
        printHostError(QStringLiteral("profile %1").arg(profile.errorString()));
        return ExitProfile;
    }
    if (options.proxyTestSeconds() > 0 && profile.proxy().host.isEmpty()) {
        printHostError(QStringLiteral("profile %1 names no proxy host to test")
                           .arg(options.profilePath()));
        return ExitProfile;
    }
    createProfileFolders(profile);

    HostLogPrinter logPrinter;
    if (!logPrinter.open(options.logPath())) {
        printHostError(logPrinter.errorString());
        return ExitUsage;
    }

    // Declared in this order so that the library is unloaded first, while the
    // window, the callbacks and the application it may still use are alive.
    HostWindow window;
    HostBridge bridge(profile, &window);
    connectWindow(window, bridge);

    // A script is checked before anything is loaded: a wrong one costs no run.
    std::unique_ptr<HostScript> script;
    if (!options.scriptPath().isEmpty()) {
        HostScript::Setup setup;
        setup.bridge = &bridge;
        setup.log = &logPrinter;
        setup.downloadFolder = profile.folder(101);
        setup.baseFolder = QFileInfo(options.profilePath()).absolutePath();
        setup.timeoutSeconds = options.scriptTimeout();
        setup.finish = [&bridge](int code) {
            bridge.closeDialog();
            QCoreApplication::exit(code);
        };
        const HostTranslator& translator = bridge.translator();
        script = std::make_unique<HostScript>(setup, [&translator](const char* key) {
            return translator.translate("CTransDownload", key);
        });
        if (!script->load(options.scriptPath())) {
            printHostError(script->errorString());
            return HostScript::ExitScript;
        }
        logPrinter.keepLines();
    }

    ModuleLoader loader;
    const QString libraryPath = options.libraryPath().isEmpty()
        ? ModuleLoader::defaultLibraryPath(QCoreApplication::applicationDirPath())
        : options.libraryPath();
    if (!loader.load(libraryPath)) {
        printHostError(loader.errorString());
        return ExitLibrary;
    }

    MODULE_INFO info;
    std::memset(&info, 0, sizeof info);
    loader.getModuleInfo(&info);
    printModuleInfo(loader, info);
    loader.initialize(&HostBridge::send, &HostBridge::post, bridge.hostObject(),
                      reinterpret_cast<void*>(kModuleSlot));
    bridge.setModuleReceiver([&loader](unsigned int code, intptr_t param1, intptr_t param2) {
        return loader.receiveMessage(loader.getModule(), code, param1, param2);
    });

    // The module may keep the vector, so it and its strings live until the
    // end of main; it ends with a null entry, as a process's argv does.
    std::vector<QByteArray> moduleArguments = options.moduleArguments();
    std::vector<char*> moduleArgv{argv[0]};
    for (QByteArray& argument : moduleArguments)
        moduleArgv.push_back(argument.data());
    moduleArgv.push_back(nullptr);
    if (!startModule(loader, moduleArgv))
        return ExitModule;
    if (options.proxyTestSeconds() > 0)
        return runProxyTest(bridge, profile, options.proxyTestSeconds());
    // The module builds its dialog object once; the object adds the menu
    // entry and starts the automatic mode's timer.
    bridge.openDialogObject();

    printSummary(bridge);
    if (script) {
        if (!headless)
            window.show();
        script->start();
        return QApplication::exec();
    }
    if (headless) {
        // One turn of the event loop, so that what the module posted is
        // answered and its objects see the application quit.
        QTimer::singleShot(0, QCoreApplication::instance(), &QCoreApplication::quit);
        QApplication::exec();
        return bridge.registered() ? ExitOk : ExitModule;
    }
    window.show();
    return QApplication::exec();
}
