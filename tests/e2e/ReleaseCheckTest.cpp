// Whole automatic updates with the release check on: nginx serving a copy of
// the signed sample tree, with download.cfg naming the sample release key.
// One run per attack on the release: each is refused, nothing of it is
// installed, and the log (and, for files, the report) says which file and
// why. A clean signed run, and one checked with a rotated key, install the
// whole release.
#include <functional>

#include <QProcess>
#include <gtest/gtest.h>

#include "WholeRunFixture.h"

namespace {

QByteArray releaseKey()
{
    return readFile(kSamples + "/signing/release.pub").split('\n').value(1);
}

struct Attack {
    const char* name;
    std::function<void(class ReleaseCheck&)> prepare;
    const char* logged;      // the line the log must hold
    const char* reportLine;  // for a refused file, its line in the report; null: the lists are refused
};

void PrintTo(const Attack& attack, std::ostream* out) { *out << attack.name; }

class ReleaseCheck : public WholeRunFixture, public ::testing::WithParamInterface<Attack> {
public:
    void SetUp() override
    {
        ASSERT_NO_FATAL_FAILURE(WholeRunFixture::SetUp());
        ASSERT_NO_FATAL_FAILURE(useServerCopy());
        writeAutomaticStart(downloadDir, false);
        keys = "PublicKey=" + releaseKey();
    }

    // A key pair nobody released with; its public key's base64 line.
    QByteArray otherKey()
    {
        const QString pub = dir.filePath("other.pub");
        QProcess::execute(DM_MINISIGN_PATH, {"-G", "-W", "-f", "-p", pub, "-s", dir.filePath("other.key")});
        return readFile(pub).split('\n').value(1);
    }

    // The sample release published again, signed with the sample key.
    void republish(const QStringList& flags)
    {
        QDir(serverRoot).removeRecursively();
        ASSERT_EQ(0, QProcess::execute(DM_PUBLISHER_PATH, QStringList{"--sign", kSamples + "/signing/release.key"}
                                                              + flags
                                                              + QStringList{kSamples + "/release/manifest.json",
                                                                            serverRoot}));
    }

    void run(const QByteArray& waitFor = "Installation ended")
    {
        signature = "[Signature]\r\n" + keys + "\r\n";
        ASSERT_NO_FATAL_FAILURE(startServer());
        ASSERT_NO_FATAL_FAILURE(runHost("answer yes\nwait-log " + waitFor + "\nsleep 300\nquit\n", result));
        ASSERT_EQ(0, result.exitCode) << qPrintable(result.transcript());
    }

    QByteArray keys;
    WholeRun result;
};

TEST_P(ReleaseCheck, AnAttackOnTheReleaseIsRefusedWithItsReason)
{
    const Attack& attack = GetParam();
    ASSERT_NO_FATAL_FAILURE(attack.prepare(*this));
    ASSERT_NO_FATAL_FAILURE(run(attack.reportLine ? "Installation ended" : "List refused"));
    EXPECT_TRUE(result.log.contains(attack.logged)) << qPrintable(result.log);
    const FileTree after = readTree(installedDir);
    if (!attack.reportLine) {
        EXPECT_TRUE(after == installedBefore) << "installed from a refused list";
        return;
    }
    EXPECT_EQ(installedBefore.value("bin/quotes.so"), after.value("bin/quotes.so")) << "the refused file was installed";
    EXPECT_NE(installedBefore.value("bin/charts.so"), after.value("bin/charts.so")) << "the good files were not";
    EXPECT_TRUE(result.boxes().filter("End updating").value(0).contains(attack.reportLine)) << qPrintable(result.out);
}

void appendTo(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::Append));
    file.write(bytes);
}

INSTANTIATE_TEST_SUITE_P(
    Attacks, ReleaseCheck,
    ::testing::Values(
        Attack{"FileChangedOnTheServer",
               [](ReleaseCheck& t) {
                   QByteArray bytes = readFile(t.serverRoot + "/files/quotes.so.gz");
                   bytes[bytes.size() / 2] = char(bytes[bytes.size() / 2] ^ 0x40);
                   writeText(t.serverRoot + "/files/quotes.so.gz", bytes);
               },
               "File refused: quotes.so: its SHA-256", " - quotes.so: its SHA-256"},
        Attack{"AnotherReleasesFile",
               [](ReleaseCheck& t) {
                   QFile::remove(t.serverRoot + "/files/quotes.so.gz");
                   QFile::copy(t.serverRoot + "/files/alerts.so.gz", t.serverRoot + "/files/quotes.so.gz");
               },
               "File refused: quotes.so: its SHA-256", " - quotes.so: its SHA-256"},
        Attack{"EndlessData",
               [](ReleaseCheck& t) { appendTo(t.serverRoot + "/files/quotes.so.gz", QByteArray(64 * 1024, 'x')); },
               "File refused: quotes.so: it is longer than", " - quotes.so: it is longer than"},
        Attack{"ListChangedAfterSigning",
               [](ReleaseCheck& t) {
                   appendTo(t.serverRoot + "/configDesc.txt",
                            "Standard,9.9.9,/lists/Standard.modules.txt,/descriptions/Standard.config.txt,x\n");
               },
               "List refused: ", nullptr},
        Attack{"Rollback", [](ReleaseCheck& t) { writeText(t.downloadDir + "/accepted-serial", "2\n"); },
               "List refused: ", nullptr},
        Attack{"Expired", [](ReleaseCheck& t) { t.republish({"--serial", "1", "--expires", "2020-01-01T00:00:00Z"}); },
               "List refused: ", nullptr},
        Attack{"AnotherKey", [](ReleaseCheck& t) { t.keys = "PublicKey=" + t.otherKey(); }, "List refused: ",
               nullptr}),
    [](const ::testing::TestParamInfo<Attack>& info) { return std::string(info.param.name); });

// A release signed with the key the installation knows, or with the next key
// of a rotation (PublicKey2), installs whole, every file verified.
TEST_F(ReleaseCheck, ASignedReleaseInstallsWithEveryFileVerified)
{
    for (const bool rotated : {false, true}) {
        SCOPED_TRACE(rotated ? "rotated key" : "release key");
        if (rotated)
            keys = "PublicKey=" + otherKey() + "\r\nPublicKey2=" + releaseKey();
        QDir(downloadDir).removeRecursively();
        writeAutomaticStart(downloadDir, false);
        ASSERT_NO_FATAL_FAILURE(run());
        EXPECT_TRUE(result.log.contains("Installation ended: 8")) << qPrintable(result.log);
        EXPECT_EQ(8, result.log.count("Verified ")) << qPrintable(result.log);
        EXPECT_FALSE(result.log.contains("refused")) << qPrintable(result.log);
        EXPECT_EQ(QByteArray("1\n"), readFile(downloadDir + "/accepted-serial"));
    }
}

}  // namespace
