// Hands 200 small files and then one 100 MiB file to the real updater
// program and prints the wall time per file and the module side's processor
// time as a share of the wall time (the goal is below 10%): the hand-over
// polls the segment, and this shows what the polling costs.
//
// Usage: bench_handover [updater program] [small files] [MiB]
// (the program defaults to the updater built beside the benchmark)
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include "update/UpdaterSession.h"

namespace {

double processorSeconds()
{
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec)
        + double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

bool writeRandom(const QString& path, qint64 size, quint32 seed)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    QRandomGenerator random(seed);
    QByteArray block(int(qMin<qint64>(size, 1 << 20)), '\0');
    for (qint64 written = 0; written < size; written += block.size()) {
        for (int i = 0; i < block.size(); i += 4) {
            const quint32 word = random.generate();
            std::memcpy(block.data() + i, &word, std::size_t(qMin(4, block.size() - i)));
        }
        if (file.write(block.constData(), qMin<qint64>(block.size(), size - written)) < 0)
            return false;
    }
    return true;
}

bool handOver(const char* title, const QString& updater, const QString& backup, const QVector<UpdaterRequest>& requests)
{
    int failures = 0;
    CUpdaterSession::Hooks hooks;
    hooks.served = [&](int, int error) { failures += error != 0; };
    CUpdaterSession session(updater, backup, requests, hooks);
    static int serial = 0;
    session.setKey(QString("dm-bench-%1-%2").arg(::getpid()).arg(++serial));

    QElapsedTimer wall;
    wall.start();
    const double processorBefore = processorSeconds();
    const CUpdaterSession::Result result = session.run();
    const double processor = processorSeconds() - processorBefore;
    const double seconds = double(wall.nsecsElapsed()) / 1e9;
    int status = 0;
    if (session.updaterPid() > 0)
        waitpid(session.updaterPid(), &status, 0);

    if (result != CUpdaterSession::Finished || failures) {
        std::fprintf(stderr, "%s: hand-over failed (%d, %d files failed): %s\n", title, int(result), failures,
                     qPrintable(session.errorString()));
        return false;
    }
    std::printf("%s: %d files in %.3f s, %.2f ms per file; module processor time %.3f s = %.1f%% of wall time"
                " (goal < 10%%)\n",
                title, requests.size(), seconds, 1000 * seconds / requests.size(), processor, 100 * processor / seconds);
    return true;
}

}  // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QString updater = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString(DM_UPDATER_PATH);
    const int smallFiles = argc > 2 ? std::atoi(argv[2]) : 200;
    const int mebibytes = argc > 3 ? std::atoi(argv[3]) : 100;

    QTemporaryDir dir;
    const QString download = dir.filePath("download");
    const QString dest = dir.filePath("modules");
    QDir().mkpath(download);
    QDir().mkpath(dest);

    // Half of the small files replace an installed one, so backups are made.
    QVector<UpdaterRequest> small;
    for (int i = 0; i < smallFiles; ++i) {
        const QString name = QString("module%1.so").arg(i);
        if (!writeRandom(download + '/' + name, 16 * 1024, quint32(i))
            || (i % 2 == 0 && !writeRandom(dest + '/' + name, 8 * 1024, quint32(i + 100000)))) {
            std::fprintf(stderr, "cannot write the sample files\n");
            return 1;
        }
        small.append({download + '/' + name, dest, false});
    }
    if (!writeRandom(download + "/big.so", qint64(mebibytes) << 20, 7)
        || !writeRandom(dest + "/big.so", 1 << 20, 8)) {
        std::fprintf(stderr, "cannot write the large sample file\n");
        return 1;
    }

    const bool smallOk = handOver("small files (16 KiB)", updater, download + "/Backup", small);
    const bool bigOk = handOver(qPrintable(QString("one file of %1 MiB").arg(mebibytes)), updater,
                                download + "/Backup", {{download + "/big.so", dest, false}});
    return smallOk && bigOk ? 0 : 1;
}
