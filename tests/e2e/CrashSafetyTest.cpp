// A terminal killed (SIGKILL) at each step of an automatic update, then
// started again: the list fetch, the size probes, a fetch, the unpacking and
// the hand-over to the updater. Every restart must complete the run with
// every installed file byte for byte the release's, and nothing else left
// in the installed tree. quotes.so.gz is served slowly so that the steps
// around it can be caught while they happen.
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "hostprog/ModuleHostRun.h"
#include "transfer/support/WaitFor.h"

namespace {

const QString kSamples = QStringLiteral(DM_SOURCE_DIR "/examples");

QMap<QString, QByteArray> treeOf(const QString& root)
{
    QMap<QString, QByteArray> tree;
    QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        tree.insert(QDir(root).relativeFilePath(path), readFile(path));
    }
    return tree;
}

void copyTree(const QString& from, const QString& to)
{
    const QMap<QString, QByteArray> tree = treeOf(from);
    for (auto it = tree.begin(); it != tree.end(); ++it) {
        QDir().mkpath(QFileInfo(to + '/' + it.key()).path());
        writeText(to + '/' + it.key(), it.value());
    }
}

struct Step {
    const char* name;
    // True once the run is at the step, judged from the server's requests,
    // the download folder, the host's log and the installed tree.
    std::function<bool(const class CrashSafety&)> reached;
};

class CrashSafety : public ::testing::TestWithParam<Step> {
public:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        installed = dir.filePath("host-run/installed");
        download = dir.filePath("host-run/download");
        copyTree(kSamples + "/installed", installed);
        before = treeOf(installed);
        writeText(dir.filePath("host-profile.json"), readFile(kSamples + "/host-profile.json"));
        writeAutomaticStart(download, false);
        nginx = std::make_unique<NginxServer>(kSamples + "/server", QStringLiteral("/files/quotes.so.gz"), 4096);
        ASSERT_TRUE(nginx->started()) << qPrintable(nginx->log());
        QDir().mkpath(dir.filePath("host-run/config"));
        writeText(dir.filePath("host-run/config/download.cfg"),
                  "[Address]\r\nPath=" + nginx->baseUrl().toLatin1() + "\r\n[Signature]\r\nPublicKey="
                      + readFile(kSamples + "/signing/release.pub").split('\n').value(1) + "\r\n");
        writeText(dir.filePath("script"), "answer yes\nwait-log Installation ended\nquit\n");
    }

    QStringList arguments() const
    {
        return {"--headless", "--script-timeout", "120", "--log", dir.filePath("host.log"), "--script",
                dir.filePath("script"), dir.filePath("host-profile.json")};
    }
    static QProcessEnvironment environment()
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("VELMORA_UPDATER", DM_UPDATER);
        environment.insert("QT_QPA_PLATFORM", "offscreen");
        return environment;
    }
    bool requested(const char* what) const { return nginx->accessLog().join('\n').contains(what); }
    QString log() const { return QString::fromUtf8(readFile(dir.filePath("host.log"))); }
    bool anyInstalledChanged() const { return treeOf(installed) != before; }
    bool unpackedInDownload() const { return QFile::exists(download + "/core.so"); }

    QTemporaryDir dir;
    QString installed, download;
    QMap<QString, QByteArray> before;
    std::unique_ptr<NginxServer> nginx;
};

TEST_P(CrashSafety, ARestartAfterAKillCompletesTheRunWithTheReleasesFiles)
{
    {
        QProcess host;
        host.setProcessChannelMode(QProcess::MergedChannels);
        ASSERT_TRUE(startModuleHost(host, arguments(), environment()));
        const bool reached = waitFor([&] {
            host.readAll();
            return GetParam().reached(*this) || host.state() == QProcess::NotRunning;
        });
        ASSERT_TRUE(reached && host.state() == QProcess::Running)
            << "the run ended before the step\n" << qPrintable(log());
        host.kill();
        host.waitForFinished(-1);
    }
    QFile::remove(dir.filePath("host.log"));
    const HostRun run = runModuleHost(arguments(), environment());
    ASSERT_EQ(0, run.exitCode) << qPrintable(run.out + run.err + log());
    EXPECT_TRUE(log().contains("Installation ended: ")) << qPrintable(log());

    // Every file the release updates is the release's; the rest as they were.
    QMap<QString, QByteArray> expected = before;
    const QMap<QString, QString> updated = {
        {"bin/core.so", "core.so"},         {"bin/quotes.so", "quotes.so"},   {"bin/charts.so", "charts.so"},
        {"bin/orders.so", "orders.so"},     {"plugins/scanner.so", "scanner.so"},
        {"share/export.so", "export.so"},   {"help/themes.pak", "themes.pak"}, {"share/fonts.pak", "fonts.pak"}};
    for (auto it = updated.begin(); it != updated.end(); ++it)
        expected.insert(it.key(), readFile(kSamples + "/release/modules/" + it.value()));
    const QMap<QString, QByteArray> after = treeOf(installed);
    EXPECT_EQ(expected.keys(), after.keys()) << qPrintable(log());
    for (auto it = expected.begin(); it != expected.end(); ++it)
        EXPECT_TRUE(after.value(it.key()) == it.value()) << qPrintable(it.key()) << " is not the release's";
}

INSTANTIATE_TEST_SUITE_P(
    Steps, CrashSafety,
    ::testing::Values(
        Step{"ListFetch", [](const CrashSafety& t) { return t.requested("configDesc.txt"); }},
        Step{"Probe", [](const CrashSafety& t) { return t.requested("|bytes|"); }},
        Step{"Fetch", [](const CrashSafety& t) { return QFileInfo(t.download + "/quotes.so.gz").size() > 0; }},
        Step{"Unpacking", [](const CrashSafety& t) { return t.log().contains("Download complete"); }},
        Step{"HandOver", [](const CrashSafety& t) { return t.anyInstalledChanged(); }}),
    [](const ::testing::TestParamInfo<Step>& info) { return std::string(info.param.name); });

}  // namespace
