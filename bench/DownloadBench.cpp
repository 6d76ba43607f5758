// Fetches a 256 MiB file from nginx on loopback with CDownloadHttp and with
// "curl -o", several rounds each, and prints the throughput of both, their
// ratio (module / curl) and the module's peak resident-memory growth.
// Goals: ratio >= 0.9, growth < 32 MiB.
// Each round also fetches the file checked (hashed as it arrives and bounded
// as a listed file is) and prints what the check adds. Goal: <= 10%.
//
// Usage: bench_download [rounds] [MiB]
#include <cstdio>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include "support/RealServers.h"
#include "transfer/DownloadHttp.h"
#include "transfer/FileDigest.h"
#include "transfer/DownloadHttpClient.h"

namespace {

// Kilobytes of a "VmRSS:" or "VmHWM:" line of /proc/self/status.
long statusKb(const char* key)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith(key))
            return line.mid(int(qstrlen(key))).trimmed().split(' ').first().toLong();
    return -1;
}

// Resets the peak so that it measures from now (Linux 4.0 and later).
void resetPeak()
{
    QFile clear(QStringLiteral("/proc/self/clear_refs"));
    if (clear.open(QIODevice::WriteOnly))
        clear.write("5");
}

class WaitingClient : public IDownloadHttpClient {
public:
    bool finished = false;
    bool failed = false;
    bool isOffLine() override { return false; }
    void getProxyData(mwiProxyState&) override {}  // no proxy: the benchmark compares with a direct curl
    bool hasWindow() override { return false; }
    void showStatusMessage(const QString&, int) override { failed = true; }
    void addBytesOnDisk(long) override {}
    void setProgress(int) override {}
    void getSizeFile(long) override {}
    void parseFileTxt(QString, int) override { finished = true; }
    void parseFileTxt1(QString, int) override {}
    void parseFileTxt2(QString, int) override {}
    void downloadModule(QString, bool) override {}
    void getNewModule(QString) override {}
    void autoDownloadConfig(QString) override {}
    void autoDownloadConfigDescr(QString, int) override {}
};

// Writes the served file; sha256 receives its hash.
bool writeServedFile(const QString& path, qint64 size, QByteArray& sha256)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    QByteArray block(4 * 1024 * 1024, '\0');
    for (int i = 0; i < block.size(); ++i)
        block[i] = char((i * 131) ^ (i >> 9));
    CFileDigest digest;
    for (qint64 written = 0; written < size; written += block.size()) {
        const qint64 part = qMin<qint64>(block.size(), size - written);
        if (file.write(block.constData(), part) < 0)
            return false;
        digest.add(block.constData(), part);
    }
    sha256 = digest.hex();
    return true;
}

// One fetch of name into folder with the module's client; its seconds, or
// -1 when it failed. checked: hashed and bounded like a listed file.
double moduleFetch(const QString& baseUrl, const QString& folder, qint64 size, bool checked,
                   QByteArray* sha256 = nullptr)
{
    WaitingClient client;
    CDownloadHttp http(&client, baseUrl);
    if (checked)
        http.checkNextFile(listedSizeLimit((size + 1023) / 1024));
    QElapsedTimer timer;
    timer.start();
    http.getFile(QStringLiteral("/big.bin"), folder, 0, CDownloadHttp::KindParseFileTxt, 0, false);
    while (!client.finished && !client.failed)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    const double seconds = timer.elapsed() / 1000.0;
    if (sha256)
        *sha256 = http.lastFetch().sha256;
    if (client.failed || QFileInfo(folder + QStringLiteral("/big.bin")).size() != size)
        return -1;
    return seconds;
}

}  // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int rounds = argc > 1 ? qMax(1, atoi(argv[1])) : 3;
    const qint64 mib = argc > 2 ? qMax(1, atoi(argv[2])) : 256;
    const qint64 size = mib * 1024 * 1024;

    QTemporaryDir root;
    QTemporaryDir out;
    QByteArray servedSha256;
    if (!writeServedFile(root.filePath(QStringLiteral("big.bin")), size, servedSha256)) {
        std::fprintf(stderr, "cannot write the served file\n");
        return 1;
    }
    NginxServer nginx(root.path());
    if (!nginx.started()) {
        std::fprintf(stderr, "nginx did not start: %s\n", qPrintable(nginx.log()));
        return 1;
    }
    const QString url = nginx.baseUrl() + QStringLiteral("/big.bin");

    double moduleSeconds = 0;
    double checkedSeconds = 0;
    double curlSeconds = 0;
    long peakGrowthKb = 0;
    for (int round = 0; round < rounds; ++round) {
        const QString target = out.filePath(QStringLiteral("big.bin"));
        QFile::remove(target);
        WaitingClient client;
        CDownloadHttp http(&client, nginx.baseUrl());
        const long baseKb = statusKb("VmRSS:");
        resetPeak();
        QElapsedTimer timer;
        timer.start();
        http.getFile(QStringLiteral("/big.bin"), out.path(), 0, CDownloadHttp::KindParseFileTxt, 0,
                     false);
        while (!client.finished && !client.failed)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        const double seconds = timer.elapsed() / 1000.0;
        peakGrowthKb = qMax(peakGrowthKb, statusKb("VmHWM:") - baseKb);
        if (client.failed || QFileInfo(target).size() != size) {
            std::fprintf(stderr, "module fetch failed in round %d\n", round + 1);
            return 1;
        }
        moduleSeconds += seconds;

        QFile::remove(target);
        QByteArray sha256;
        const double checkedTime = moduleFetch(nginx.baseUrl(), out.path(), size, true, &sha256);
        if (checkedTime < 0 || sha256 != servedSha256) {
            std::fprintf(stderr, "checked module fetch failed in round %d\n", round + 1);
            return 1;
        }
        checkedSeconds += checkedTime;

        QFile::remove(target);
        timer.restart();
        const int curl = QProcess::execute(QStringLiteral("curl"),
                                           {QStringLiteral("-s"), QStringLiteral("-o"), target, url});
        const double curlTime = timer.elapsed() / 1000.0;
        if (curl != 0 || QFileInfo(target).size() != size) {
            std::fprintf(stderr, "curl failed in round %d\n", round + 1);
            return 1;
        }
        curlSeconds += curlTime;
        std::printf("round %d: module %.3f s, checked %.3f s, curl %.3f s\n", round + 1, seconds,
                    checkedTime, curlTime);
    }
    const double moduleRate = rounds * double(mib) / moduleSeconds;
    const double curlRate = rounds * double(mib) / curlSeconds;
    std::printf("file %lld MiB, %d rounds\n", static_cast<long long>(mib), rounds);
    std::printf("module %.1f MiB/s, curl %.1f MiB/s, ratio module/curl %.2f (goal >= 0.90)\n",
                moduleRate, curlRate, moduleRate / curlRate);
    std::printf("module peak RSS growth %.1f MiB (goal < 32)\n", peakGrowthKb / 1024.0);
    std::printf("checked (SHA-256 as it arrives): %.1f MiB/s, adds %.0f%% to the module's time "
                "(goal <= 10%%)\n",
                rounds * double(mib) / checkedSeconds, 100.0 * (checkedSeconds / moduleSeconds - 1));
    return 0;
}
