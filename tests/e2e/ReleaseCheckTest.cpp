// Whole automatic updates with the release check on: the reference host,
// the module, the updater and nginx serving a copy of the signed sample
// tree, with download.cfg naming the sample release key. One run per attack
// on the release: each is refused, nothing of it is installed, and the log
// (and, for files, the report) says which file and why. A clean signed run,
// and one checked with a rotated key, install the whole release.
#include <QCryptographicHash>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "hostprog/ModuleHostRun.h"

namespace {

const QString kSamples = QStringLiteral(DM_SOURCE_DIR "/examples");

QByteArray releaseKey()
{
    return readFile(kSamples + "/signing/release.pub").split('\n').value(1);
}

void copyTree(const QString& from, const QString& to)
{
    QDirIterator it(from, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString target = to + '/' + QDir(from).relativeFilePath(path);
        QDir().mkpath(QFileInfo(target).path());
        QFile::copy(path, target);
    }
}

QMap<QString, QByteArray> treeOf(const QString& root)
{
    QMap<QString, QByteArray> tree;
    QDirIterator it(root, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        tree.insert(QDir(root).relativeFilePath(path), readFile(path));
    }
    return tree;
}

struct Attack {
    const char* name;
    std::function<void(class ReleaseCheck&)> prepare;
    const char* logged;      // the line the log must hold
    bool listsRefused;       // nothing offered: the installed tree stays as it was
    const char* reportLine;  // for a refused file: its line in the report
};

void PrintTo(const Attack& attack, std::ostream* out)
{
    *out << attack.name;
}

class ReleaseCheck : public ::testing::TestWithParam<Attack> {
public:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        server = dir.filePath("server");
        installed = dir.filePath("host-run/installed");
        download = dir.filePath("host-run/download");
        copyTree(kSamples + "/server", server);
        copyTree(kSamples + "/installed", installed);
        writeText(dir.filePath("host-profile.json"), readFile(kSamples + "/host-profile.json"));
        writeAutomaticStart(download, false);
        before = treeOf(installed);
        keys = "PublicKey=" + releaseKey();
    }

    // A key pair nobody released with; its public key's base64 line.
    QByteArray otherKey()
    {
        const QString pub = dir.filePath("other.pub"), sec = dir.filePath("other.key");
        QProcess::execute(DM_MINISIGN_PATH, {"-G", "-W", "-f", "-p", pub, "-s", sec});
        return readFile(pub).split('\n').value(1);
    }

    // The sample release published again, signed with the sample key.
    void republish(const QStringList& flags)
    {
        QDir(server).removeRecursively();
        const QStringList arguments = QStringList{"--sign", kSamples + "/signing/release.key"} + flags
            + QStringList{kSamples + "/release/manifest.json", server};
        ASSERT_EQ(0, QProcess::execute(DM_PUBLISHER_PATH, arguments));
    }

    QString run()
    {
        NginxServer nginx(server);
        EXPECT_TRUE(nginx.started()) << nginx.log().toStdString();
        QDir().mkpath(dir.filePath("host-run/config"));
        writeText(dir.filePath("host-run/config/download.cfg"),
                  "[Address]\r\nPath=" + nginx.baseUrl().toLatin1() + "\r\n[Signature]\r\n" + keys + "\r\n");
        writeText(dir.filePath("script"), "answer yes\nwait-log " + waitFor + "\nsleep 300\nquit\n");
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("VELMORA_UPDATER", DM_UPDATER);
        environment.insert("QT_QPA_PLATFORM", "offscreen");
        result = runModuleHost({"--headless", "--script-timeout", "120", "--log", dir.filePath("host.log"),
                                "--script", dir.filePath("script"), dir.filePath("host-profile.json")},
                               environment);
        return QString::fromUtf8(readFile(dir.filePath("host.log")));
    }

    QTemporaryDir dir;
    QString server, installed, download;
    QMap<QString, QByteArray> before;
    QByteArray keys;
    QByteArray waitFor = "Installation ended";
    HostRun result;
};

TEST_P(ReleaseCheck, AnAttackOnTheReleaseIsRefusedWithItsReason)
{
    const Attack& attack = GetParam();
    ASSERT_NO_FATAL_FAILURE(attack.prepare(*this));
    if (attack.listsRefused)
        waitFor = "List refused";
    const QString log = run();
    ASSERT_EQ(0, result.exitCode) << qPrintable(result.out + result.err + log);
    EXPECT_TRUE(log.contains(QString::fromUtf8(attack.logged))) << qPrintable(log);
    const QMap<QString, QByteArray> after = treeOf(installed);
    if (attack.listsRefused) {
        EXPECT_TRUE(after == before) << "installed from a refused list";
        return;
    }
    EXPECT_EQ(before.value("bin/quotes.so"), after.value("bin/quotes.so")) << "the refused file was installed";
    EXPECT_NE(before.value("bin/charts.so"), after.value("bin/charts.so")) << "the good files were not";
    EXPECT_TRUE(result.boxes().filter("End updating").value(0).contains(QString::fromUtf8(attack.reportLine)))
        << qPrintable(result.out);
}

void changeQuotesOnTheServer(ReleaseCheck& test)
{
    QFile file(test.server + "/files/quotes.so.gz");
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    QByteArray bytes = file.readAll();
    bytes[bytes.size() / 2] = char(bytes[bytes.size() / 2] ^ 0x40);
    file.seek(0);
    file.write(bytes);
}

INSTANTIATE_TEST_SUITE_P(
    Attacks, ReleaseCheck,
    ::testing::Values(
        Attack{"FileChangedOnTheServer", changeQuotesOnTheServer, "File refused: quotes.so: its SHA-256", false,
               " - quotes.so: its SHA-256"},
        Attack{"AnotherReleasesFile",
               [](ReleaseCheck& t) {
                   QFile::remove(t.server + "/files/quotes.so.gz");
                   QFile::copy(t.server + "/files/alerts.so.gz", t.server + "/files/quotes.so.gz");
               },
               "File refused: quotes.so: its SHA-256", false, " - quotes.so: its SHA-256"},
        Attack{"EndlessData",
               [](ReleaseCheck& t) {
                   QFile file(t.server + "/files/quotes.so.gz");
                   file.open(QIODevice::Append);
                   file.write(QByteArray(64 * 1024, 'x'));
               },
               "File refused: quotes.so: it is longer than", false, " - quotes.so: it is longer than"},
        Attack{"ListChangedAfterSigning",
               [](ReleaseCheck& t) {
                   QFile file(t.server + "/configDesc.txt");
                   file.open(QIODevice::Append);
                   file.write("Standard,9.9.9,/lists/Standard.modules.txt,/descriptions/Standard.config.txt,x\n");
               },
               "List refused: ", true, ""},
        Attack{"Rollback",
               [](ReleaseCheck& t) { writeText(t.download + "/accepted-serial", "2\n"); },
               "List refused: ", true, ""},
        Attack{"Expired", [](ReleaseCheck& t) { t.republish({"--serial", "1", "--expires", "2020-01-01T00:00:00Z"}); },
               "List refused: ", true, ""},
        Attack{"AnotherKey", [](ReleaseCheck& t) { t.keys = "PublicKey=" + t.otherKey(); }, "List refused: ", true,
               ""}),
    [](const ::testing::TestParamInfo<Attack>& info) { return std::string(info.param.name); });

// A release signed with the key the installation knows, or with the next key
// of a rotation (PublicKey2), installs whole, every file verified.
TEST_F(ReleaseCheck, ASignedReleaseInstallsWithEveryFileVerified)
{
    for (const bool rotated : {false, true}) {
        SCOPED_TRACE(rotated ? "rotated key" : "release key");
        if (rotated)
            keys = "PublicKey=" + otherKey() + "\r\nPublicKey2=" + releaseKey();
        QDir(download).removeRecursively();
        writeAutomaticStart(download, false);
        QFile::remove(dir.filePath("host.log"));
        const QString log = run();
        ASSERT_EQ(0, result.exitCode) << qPrintable(result.out + result.err + log);
        EXPECT_TRUE(log.contains("Installation ended: 8")) << qPrintable(log);
        EXPECT_EQ(8, log.count("Verified ")) << qPrintable(log);
        EXPECT_FALSE(log.contains("refused")) << qPrintable(log);
        EXPECT_EQ(QByteArray("1\n"), readFile(download + "/accepted-serial"));
    }
}

}  // namespace
