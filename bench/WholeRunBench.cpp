// The update a user waits for, from the host's start to the report: the
// reference host, headless, runs the module's automatic update of an
// installed tree from nginx on loopback, and the reference updater puts the
// files in place with a backup of each old one. In the same run a shell
// pipeline does the same work with standard tools (bench/reference-update.sh:
// curl per file, gzip -d, cp to the backup folder, cp and mv into place).
// Two sets: many small files and a few large ones. Prints both times per
// round, the ratio of the medians (module / pipeline; goal <= 1.3) and the
// peak resident memory of module-host.
//
// Usage: bench_wholerun [rounds]   (DM_BENCH_KEEP=1: keep the folders, named on exit)
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include "support/RealServers.h"
#include "tools/publish/ServerTreeWriter.h"
#include "tools/publish/UpdateManifest.h"

namespace {

struct FileSet {
    const char* name;
    int count;
    int size;  // bytes of each unpacked module
};

// Bytes like a program's: runs of noise between runs of repeated text, so
// that gzip has something to do in both directions.
QByteArray moduleBytes(const QByteArray& header, int size, quint32 seed)
{
    QByteArray bytes = header;
    bytes.reserve(size);
    QRandomGenerator random(seed);
    const QByteArray text = "mov eax, [ebp+8]; call quote_update; ";
    while (bytes.size() < size) {
        if (random.bounded(2)) {
            for (int i = 0; i < 1024; ++i)
                bytes.append(char(random.generate()));
        } else {
            for (int i = 0; i < 24; ++i)
                bytes.append(text);
        }
    }
    bytes.resize(size);
    return bytes;
}

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool copyTree(const QString& from, const QString& to)
{
    QDirIterator it(from, QDir::Files, QDirIterator::Subdirectories);
    bool copied = QDir().mkpath(to);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString target = to + QLatin1Char('/') + QDir(from).relativeFilePath(path);
        copied = QDir().mkpath(QFileInfo(target).path()) && QFile::copy(path, target) && copied;
    }
    return copied;
}

QString moduleName(int index)
{
    return QStringLiteral("m%1.so").arg(index, 3, 10, QLatin1Char('0'));
}

// Runs program with arguments and the extra environment, output to logPath;
// wall seconds, and the peak resident KiB of it (or of a child it waited for,
// if larger).
struct Outcome {
    bool ok = false;
    double seconds = 0;
    long peakKb = 0;
};

Outcome runTimed(const QStringList& command, const QStringList& environment, const QString& logPath)
{
    std::vector<QByteArray> words;
    for (const QString& word : command)
        words.push_back(QFile::encodeName(word));
    std::vector<char*> argv;
    for (QByteArray& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    std::vector<QByteArray> settings;
    for (const QString& setting : environment)
        settings.push_back(setting.toLocal8Bit());
    const QByteArray log = QFile::encodeName(logPath);

    Outcome outcome;
    QElapsedTimer clock;
    clock.start();
    const pid_t pid = fork();
    if (pid == 0) {
        for (QByteArray& setting : settings)
            putenv(setting.data());
        const int out = open(log.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(out, 1);
        dup2(out, 2);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    if (pid < 0 || wait4(pid, &status, 0, &usage) != pid)
        return outcome;
    outcome.seconds = double(clock.nsecsElapsed()) / 1e9;
    outcome.peakKb = usage.ru_maxrss;
    outcome.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    return outcome;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

class SetBench {
public:
    SetBench(const FileSet& set, const QString& folder) : set_(set), folder_(folder) {}

    bool prepare()
    {
        UpdateManifest manifest;
        ManifestConfiguration configuration;
        configuration.name = QStringLiteral("Standard");
        configuration.version = QStringLiteral("3.3.8");
        configuration.title = QStringLiteral("Standard configuration");
        for (int i = 0; i < set_.count; ++i) {
            const QString name = moduleName(i);
            const QString release = folder_ + QStringLiteral("/release/") + name;
            if (!writeFile(release, moduleBytes(name.toLatin1() + " 1.1.0\n", set_.size, quint32(i + 1)))
                || !writeFile(folder_ + QStringLiteral("/installed/bin/") + name,
                              moduleBytes(name.toLatin1() + " 1.0.0\n", set_.size, quint32(i + 7919))))
                return false;
            ManifestModule module;
            module.name = name;
            module.file = release;
            module.version = QStringLiteral("1.1.0");
            module.core = QStringLiteral("3.3.8");
            module.type = 1;
            module.date = QStringLiteral("2026-11-20");
            configuration.modules.push_back(module);
        }
        // The automatic run takes the modules of the current configuration's
        // list; the configuration itself stays at the installed version.
        manifest.configurations.push_back(configuration);
        ServerTreeWriter writer(folder_ + QStringLiteral("/server"));
        if (!writer.write(manifest)) {
            std::fprintf(stderr, "bench_wholerun: %s\n", qPrintable(writer.errorString()));
            return false;
        }
        nginx_ = std::make_unique<NginxServer>(folder_ + QStringLiteral("/server"));
        if (!nginx_->started())
            std::fprintf(stderr, "bench_wholerun: nginx did not start:\n%s\n", qPrintable(nginx_->log()));
        return nginx_->started();
    }

    // The module's automatic run through module-host on a fresh copy of the
    // installed tree.
    Outcome runModule(int round)
    {
        const QString run = QStringLiteral("%1/module-%2").arg(folder_).arg(round);
        const QString installed = run + QStringLiteral("/installed");
        if (!copyTree(folder_ + QStringLiteral("/installed"), installed))
            return {};
        QJsonObject folders;
        const QString types[][2] = {{"1", "installed/bin"}, {"2", "config"}, {"3", "installed/lib"},
                                    {"4", "installed/plugins"}, {"5", "installed/share"}, {"101", "download"},
                                    {"150", "installed/other"}, {"151", "config-copy"}, {"157", "installed/help"}};
        for (const auto& type : types) {
            folders.insert(type[0], run + QLatin1Char('/') + type[1]);
            QDir().mkpath(run + QLatin1Char('/') + type[1]);
        }
        QJsonArray modules;
        for (int i = 0; i < set_.count; ++i)
            modules.append(QJsonObject{{"name", moduleName(i)}, {"version", "1.0.0"}});
        const QJsonObject profile{
            {"name", "Benchmark terminal"},
            {"folders", folders},
            {"workFolder", run + QStringLiteral("/user")},
            {"languages", QJsonArray{QJsonObject{{"name", "English"}, {"current", true}}}},
            {"online", true},
            {"installedConfigurations",
             QJsonArray{QJsonObject{{"name", "Standard"}, {"version", "3.3.8"}, {"current", true},
                                    {"secondName", "Standard configuration"}, {"modules", modules}}}}};
        writeFile(run + QStringLiteral("/profile.json"), QJsonDocument(profile).toJson());
        writeFile(run + QStringLiteral("/config/download.cfg"),
                  "[Address]\r\nPath=" + nginx_->baseUrl().toLatin1() + "\r\n");
        // The stored start options of the automatic mode, started at once.
        writeFile(run + QStringLiteral("/download/download.rdd"),
                  "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<parameters format=\"1\">\n"
                  "  <node name=\"ParametersDL\">\n    <node name=\"ParamAutoDL\">\n"
                  "      <param name=\"AutoDownload\" value=\"1\"/>\n"
                  "      <param name=\"ShowWindow\" value=\"0\"/>\n"
                  "      <param name=\"DelayAutoStart\" value=\"0\"/>\n"
                  "    </node>\n  </node>\n</parameters>\n");
        writeFile(run + QStringLiteral("/script.txt"), "answer yes\nwait-log Installation ended\nquit\n");
        const Outcome outcome = runTimed(
            {QStringLiteral(DM_MODULE_HOST), QStringLiteral("--headless"), QStringLiteral("--script-timeout"),
             QStringLiteral("300"), QStringLiteral("--log"), run + QStringLiteral("/host.log"),
             QStringLiteral("--script"), run + QStringLiteral("/script.txt"), run + QStringLiteral("/profile.json")},
            {QStringLiteral("VELMORA_UPDATER=" DM_UPDATER), QStringLiteral("QT_QPA_PLATFORM=offscreen")},
            run + QStringLiteral("/host.out"));
        return checked(outcome, installed + QStringLiteral("/bin"), run + QStringLiteral("/host.out"));
    }

    Outcome runPipeline(int round)
    {
        const QString run = QStringLiteral("%1/pipeline-%2").arg(folder_).arg(round);
        const QString installed = run + QStringLiteral("/installed");
        if (!copyTree(folder_ + QStringLiteral("/installed"), installed))
            return {};
        const Outcome outcome =
            runTimed({QStringLiteral("bash"), QStringLiteral(DM_SOURCE_DIR "/bench/reference-update.sh"),
                      nginx_->baseUrl(), QStringLiteral("/lists/Standard.modules.txt"),
                      run + QStringLiteral("/download"), installed + QStringLiteral("/bin"),
                      run + QStringLiteral("/backup")},
                     {}, run + QStringLiteral("/pipeline.out"));
        return checked(outcome, installed + QStringLiteral("/bin"), run + QStringLiteral("/pipeline.out"));
    }

private:
    // A run counts only when every installed file is the release's.
    Outcome checked(Outcome outcome, const QString& bin, const QString& output) const
    {
        for (int i = 0; outcome.ok && i < set_.count; ++i) {
            if (readAll(bin + QLatin1Char('/') + moduleName(i))
                != readAll(folder_ + QStringLiteral("/release/") + moduleName(i))) {
                std::fprintf(stderr, "bench_wholerun: %s not installed by %s\n", qPrintable(moduleName(i)),
                             qPrintable(output));
                outcome.ok = false;
            }
        }
        if (!outcome.ok)
            std::fprintf(stderr, "bench_wholerun: run failed:\n%s\n", readAll(output).right(2000).constData());
        return outcome;
    }

    FileSet set_;
    QString folder_;
    std::unique_ptr<NginxServer> nginx_;
};

}  // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 3;
    const FileSet sets[] = {{"200 files of 16 KiB", 200, 16 * 1024}, {"5 files of 20 MiB", 5, 20 * 1024 * 1024}};
    int failures = 0;
    for (const FileSet& set : sets) {
        QTemporaryDir folder;
        // DM_BENCH_KEEP keeps the trees, the logs and the server's folder.
        folder.setAutoRemove(qEnvironmentVariableIsEmpty("DM_BENCH_KEEP"));
        SetBench bench(set, folder.path());
        if (!folder.isValid() || !bench.prepare())
            return 1;
        std::vector<double> module;
        std::vector<double> pipeline;
        long peakKb = 0;
        std::printf("%s, automatic run from nginx on loopback, %d rounds\n", set.name, rounds);
        for (int round = 0; round < rounds; ++round) {
            // Both on fresh copies of the installed tree; after the first
            // round both find the server's files in the page cache.
            const Outcome m = bench.runModule(round);
            const Outcome p = bench.runPipeline(round);
            if (!m.ok || !p.ok) {
                ++failures;
                continue;
            }
            module.push_back(m.seconds);
            pipeline.push_back(p.seconds);
            peakKb = std::max(peakKb, m.peakKb);
            std::printf("  round %d: module %.3f s, pipeline %.3f s\n", round + 1, m.seconds, p.seconds);
        }
        if (module.empty())
            continue;
        std::printf("  median: module %.3f s, pipeline %.3f s, ratio module/pipeline %.2f (goal <= 1.30)\n",
                    median(module), median(pipeline), median(module) / median(pipeline));
        std::printf("  module-host peak RSS %.1f MiB\n", double(peakKb) / 1024.0);
        if (!folder.autoRemove())
            std::printf("  kept in %s\n", qPrintable(folder.path()));
        std::fflush(stdout);
    }
    return failures ? 1 : 0;
}
