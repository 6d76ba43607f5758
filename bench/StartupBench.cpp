// The module's start as a terminal sees it: from dlopen of the library
// through registration (3007) and host readiness (3004) to the first moment
// the host's event loop is idle again, i.e. when what the module posted at
// its start has been answered. Goal: under 20 ms. For comparison it also
// times the dialog object (3066, the automatic mode's timer and the menu
// entry) to the next idle moment.
//
// Each measurement runs in a fresh process, since a library is loaded only
// once per process; the Qt application exists before the clock starts, as a
// terminal's does.
//
// Usage: bench_startup [library] [runs]
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <QAbstractEventDispatcher>
#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>

#include "host/app/HostBridge.h"
#include "host/app/HostLogPrinter.h"
#include "host/app/HostProfile.h"
#include "host/app/HostWindow.h"
#include "host/app/ModuleLoader.h"
#include "protocol/HostMessages.h"

namespace {

constexpr intptr_t kModuleSlot = 1;

// The sample terminal's profile, its folders inside folder.
QString writeProfile(const QString& folder)
{
    QFile sample(QStringLiteral(DM_SOURCE_DIR "/examples/host-profile.json"));
    sample.open(QIODevice::ReadOnly);
    QByteArray profile = sample.readAll();
    profile.replace("\"host-run/", "\"" + QFile::encodeName(folder) + "/host-run/");
    const QString path = folder + QStringLiteral("/host-profile.json");
    QFile out(path);
    out.open(QIODevice::WriteOnly);
    out.write(profile);
    return path;
}

// One start in this process; prints "loaded registered ready idle dialog"
// as microseconds since dlopen.
int measureOnce(char** argv, const QString& library)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    int qtArgc = 1;
    QApplication application(qtArgc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    QTemporaryDir dir;
    HostProfile profile;
    if (!dir.isValid() || !profile.load(writeProfile(dir.path()))) {
        std::fprintf(stderr, "bench_startup: no profile: %s\n", qPrintable(profile.errorString()));
        return 1;
    }
    for (const auto& entry : profile.folders())
        QDir().mkpath(entry.second);
    // No server is reached: the module only reads its settings at start.
    QFile settings(profile.folder(2) + QStringLiteral("/download.cfg"));
    settings.open(QIODevice::WriteOnly);
    settings.write("[Address]\r\nPath=http://127.0.0.1:9\r\n");
    settings.close();
    HostLogPrinter logPrinter;
    logPrinter.open(dir.filePath(QStringLiteral("host.log")));
    HostWindow window;
    HostBridge bridge(profile, &window);
    ModuleLoader loader;
    std::vector<char*> arguments{argv[0], nullptr};

    QElapsedTimer clock;
    qint64 at[5] = {};
    clock.start();
    if (!loader.load(library)) {
        std::fprintf(stderr, "bench_startup: %s\n", qPrintable(loader.errorString()));
        return 1;
    }
    MODULE_INFO info;
    std::memset(&info, 0, sizeof info);
    loader.getModuleInfo(&info);
    loader.initialize(&HostBridge::send, &HostBridge::post, bridge.hostObject(),
                      reinterpret_cast<void*>(kModuleSlot));
    bridge.setModuleReceiver([&loader](unsigned int code, intptr_t param1, intptr_t param2) {
        return loader.receiveMessage(loader.getModule(), code, param1, param2);
    });
    at[0] = clock.nsecsElapsed();
    loader.receiveMessage(loader.getModule(), HostMsg::CommandLine, intptr_t(arguments.size() - 1),
                          reinterpret_cast<intptr_t>(arguments.data()));
    at[1] = clock.nsecsElapsed();
    loader.receiveMessage(loader.getModule(), HostMsg::HostReady, 0, 0);
    at[2] = clock.nsecsElapsed();

    // aboutToBlock: the loop has nothing left to do and is about to wait.
    int idles = 0;
    QObject::connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock,
                     &application, [&] {
                         if (idles == 0) {
                             at[3] = clock.nsecsElapsed();
                             ++idles;
                             QTimer::singleShot(0, &application, [&] {
                                 at[4] = clock.nsecsElapsed();
                                 bridge.openDialogObject();
                             });
                         } else if (idles == 1 && at[4] > 0) {
                             at[4] = clock.nsecsElapsed() - at[4];
                             ++idles;
                             QCoreApplication::quit();
                         }
                     });
    QApplication::exec();
    bridge.closeDialog();
    std::printf("%lld %lld %lld %lld %lld\n", at[0] / 1000, at[1] / 1000, at[2] / 1000, at[3] / 1000,
                at[4] / 1000);
    return bridge.registered() ? 0 : 1;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc > 2 && std::strcmp(argv[1], "--once") == 0)
        return measureOnce(argv, QString::fromLocal8Bit(argv[2]));
    const QString library = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral(DM_MODULE_LIBRARY);
    const int runs = argc > 2 ? std::max(1, std::atoi(argv[2])) : 20;
    std::vector<double> phases[5];
    for (int run = 0; run < runs; ++run) {
        QProcess once;
        once.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        once.start(QString::fromLocal8Bit(argv[0]), {QStringLiteral("--once"), library});
        if (!once.waitForFinished(60000) || once.exitCode() != 0) {
            std::fprintf(stderr, "bench_startup: run %d failed\n", run + 1);
            return 1;
        }
        // The host prints its own lines too; the figures are the last one.
        const QList<QByteArray> fields = once.readAllStandardOutput().trimmed().split('\n').last().split(' ');
        if (fields.size() != 5) {
            std::fprintf(stderr, "bench_startup: run %d printed no figures\n", run + 1);
            return 1;
        }
        for (int i = 0; i < 5; ++i)
            phases[i].push_back(fields[i].toDouble() / 1000.0);
    }
    std::printf("%d runs, each in a fresh process; median (slowest) in ms since dlopen\n", runs);
    const char* names[] = {"library loaded, Initialize done", "3007 answered", "3004 answered",
                           "first idle after 3004"};
    for (int i = 0; i < 4; ++i)
        std::printf("  %-34s %7.2f (%.2f)\n", names[i], median(phases[i]),
                    *std::max_element(phases[i].begin(), phases[i].end()));
    std::printf("start to first idle: %.2f ms (goal < 20)\n", median(phases[3]));
    std::printf("dialog object (3066) to the next idle: %.2f ms, for comparison\n", median(phases[4]));
    return 0;
}
