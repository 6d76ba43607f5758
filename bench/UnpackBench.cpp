// Unpacks a 100 MiB gzip file with the module's unpacking and with
// `gzip -dc` in the same run, on the same disk, and prints both rates and
// their ratio (module / gzip; the goal is 0.9 or more).
//
// Usage: bench_unpack [MiB]
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <zlib.h>

#include "update/Unpack.h"

namespace {

// Text-like content: compresses about as well as program modules do, and
// gives the inflater real work (no long runs of one byte).
bool writeSample(const QString& path, int mebibytes)
{
    gzFile gz = gzopen(QFile::encodeName(path).constData(), "wb6");
    if (!gz)
        return false;
    QRandomGenerator random(42);
    QByteArray block(1 << 20, '\0');
    static const char words[][8] = {"quote", "bid", "ask", "volume", "ticker", "order", "fill", "cancel"};
    for (int m = 0; m < mebibytes; ++m) {
        int at = 0;
        while (at < block.size()) {
            const char* word = words[random.bounded(8)];
            QByteArray token = QByteArray(word) + ' ' + QByteArray::number(random.bounded(100000)) + '\n';
            const int take = qMin(token.size(), block.size() - at);
            std::memcpy(block.data() + at, token.constData(), std::size_t(take));
            at += take;
        }
        if (gzwrite(gz, block.constData(), unsigned(block.size())) != block.size())
            return false;
    }
    return gzclose(gz) == Z_OK;
}

double seconds(const QElapsedTimer& timer)
{
    return double(timer.nsecsElapsed()) / 1e9;
}

}  // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int mebibytes = argc > 1 ? std::atoi(argv[1]) : 100;
    QTemporaryDir dir;
    const QString sample = dir.filePath("sample.bin.gz");
    if (!writeSample(sample, mebibytes)) {
        std::fprintf(stderr, "cannot write %s\n", qPrintable(sample));
        return 1;
    }
    std::printf("sample: %d MiB unpacked, %.1f MiB compressed\n", mebibytes,
                double(QFile(sample).size()) / (1 << 20));

    // gzip first and the module second, then the other way round: each
    // reads a file the page cache already holds.
    double gzipTime = 0, moduleTime = 0;
    for (int round = 0; round < 2; ++round) {
        QElapsedTimer timer;
        timer.start();
        const int status = QProcess::execute("/bin/sh", {"-c", "gzip -dc \"$0\" > \"$1\"", sample, dir.filePath("gzip.out")});
        gzipTime += seconds(timer);
        if (status != 0) {
            std::fprintf(stderr, "gzip -dc failed\n");
            return 1;
        }

        QFile::remove(dir.filePath("module.bin.gz"));
        QFile::copy(sample, dir.filePath("module.bin.gz"));
        dlModule module = emptyDlModule();
        setDlText(module.localPath, dir.filePath("module.bin.gz").toLocal8Bit());
        timer.restart();
        const bool unpacked = unzipDownloadedModule(module, nullptr);
        moduleTime += seconds(timer);
        if (!unpacked || QFile(dir.filePath("module.bin")).size() != qint64(mebibytes) << 20) {
            std::fprintf(stderr, "unpacking failed\n");
            return 1;
        }
    }
    const double total = 2.0 * mebibytes;
    std::printf("gzip -dc: %.3f s, %.1f MiB/s\n", gzipTime / 2, total / gzipTime);
    std::printf("module:   %.3f s, %.1f MiB/s\n", moduleTime / 2, total / moduleTime);
    std::printf("ratio module/gzip: %.2f (goal >= 0.9)\n", gzipTime / moduleTime);
    return 0;
}
