// Whole automatic updates with the release check on: nginx serving a copy of
// the signed sample tree, download.cfg naming the sample release key. One run
// per way a server, the path to it or the terminal's own files can hand over
// what the release did not sign: the log (and, for a file, the report) names
// it and says why, and nothing of it is installed or kept.
#include <functional>

#include <QProcess>
#include <gtest/gtest.h>

#include "WholeRunFixture.h"

namespace {

const QByteArray kComment = "serial=1 expires=2036-01-01T00:00:00Z";
const QByteArray kQuotesHash = "fc321cb7d2f2df0aded6a77891ad9dd8f5de67c04c43cd71e9b53f1e8d31b85b";
const char kQuotes[] = "/files/quotes.so.gz";

QByteArray releaseKey() { return readFile(kSamples + "/signing/release.pub").split('\n').value(1); }
// A well-formed key nobody released with.
const QByteArray kOtherKey = ("Ed" + QByteArray(40, '\x07')).toBase64();

struct Fault {
    const char* name;
    std::function<void(class SignatureFaults&)> prepare;
    const char* refused;  // a list (".txt") as saved in the download folder, or a module
    QByteArray reason;    // the start of the reason the log and the report give
    const char* serial = "1\n";  // accepted-serial afterwards; null: none
    // For a list, the installed files that stay as they were (empty: all);
    // a refused file leaves only itself as it was.
    QStringList untouched = {};
};

void PrintTo(const Fault& fault, std::ostream* out) { *out << fault.name; }

class SignatureFaults : public WholeRunFixture, public ::testing::WithParamInterface<Fault> {
public:
    void SetUp() override
    {
        ASSERT_NO_FATAL_FAILURE(WholeRunFixture::SetUp());
        ASSERT_NO_FATAL_FAILURE(useServerCopy());
        writeAutomaticStart(downloadDir, false);
        keys = "PublicKey=" + releaseKey();
    }

    // Signed again with the release key, by minisign itself.
    void sign(const QString& served, const QStringList& options)
    {
        ASSERT_EQ(0, QProcess::execute(DM_MINISIGN_PATH, QStringList{"-S", "-s", kSamples + "/signing/release.key",
                                                                     "-m", serverRoot + served} + options));
    }

    void edit(const QString& served, const QByteArray& from, const QByteArray& to)
    {
        QByteArray bytes = readFile(serverRoot + served);
        ASSERT_TRUE(bytes.contains(from)) << qPrintable(served);
        writeText(serverRoot + served, bytes.replace(from, to));
    }
    QByteArray served(const QString& path) const { return readFile(serverRoot + path); }
    void serve(const QString& path, const QByteArray& bytes) { writeText(serverRoot + path, bytes); }

    // A terminal killed while quotes.so.gz is half way: the next run resumes
    // it from the bytes held.
    void killMidQuotes()
    {
        QProcess host;
        ASSERT_NO_FATAL_FAILURE(startRunHalfWay(host, kFileServerFamilies[0], 4096));
        host.kill();
        host.waitForFinished(-1);
    }

    void run(const QByteArray& waitFor = "Installation ended")
    {
        signature = "[Signature]\r\n" + keys + "\r\n";
        if (server)
            writeSettings(server->baseUrl().toLatin1());
        else
            ASSERT_NO_FATAL_FAILURE(startServer());
        ASSERT_NO_FATAL_FAILURE(runHost("answer yes\nwait-log " + waitFor + "\nsleep 300\nquit\n", result));
        ASSERT_EQ(0, result.exitCode) << qPrintable(result.transcript());
    }

    QByteArray keys;
    WholeRun result;
};

TEST_P(SignatureFaults, WhatTheReleaseDidNotSignIsRefusedByNameAndNothingOfItKept)
{
    const Fault& fault = GetParam();
    const QString refused = fault.refused;
    const bool list = refused.endsWith(".txt");
    ASSERT_NO_FATAL_FAILURE(fault.prepare(*this));
    ASSERT_NO_FATAL_FAILURE(run(list ? "List refused" : "Installation ended"));
    const QString why = refused + ": " + fault.reason;
    const QString line = result.log.split('\n').filter(list ? "List refused: " : "File refused: ").value(0);
    EXPECT_TRUE(line.contains((list ? downloadDir + '/' : QString()) + why)) << qPrintable(result.log);
    EXPECT_TRUE(list || result.boxes().filter("End updating").value(0).contains(" - " + why)) << qPrintable(result.out);
    EXPECT_EQ(QByteArray(fault.serial), readFile(downloadDir + "/accepted-serial"));
    for (const char* packed : {"", ".gz"})
        EXPECT_FALSE(QFile::exists(downloadDir + '/' + refused + packed)) << "kept what was refused";
    QMap<QString, QString> updated = kUpdatedByAutomaticRun;
    const QStringList untouched = list ? fault.untouched : QStringList{updated.key(refused)};
    for (const QString& installed : untouched.isEmpty() ? QStringList(updated.keys()) : untouched)
        updated.remove(installed);
    expectInstalled(releaseFiles(updated));
}

INSTANTIATE_TEST_SUITE_P(
    Release, SignatureFaults,
    ::testing::Values(
        Fault{"ListChangedAfterSigning", [](auto& t) { t.edit("/configDesc.txt", "Standard,3.4.0", "Standard,3.4.1"); },
              "configDesc.txt", "its signature does not match its contents", nullptr},
        Fault{"AnotherListsSignature",
              [](auto& t) { t.serve("/configDesc.txt.minisig", t.served("/moduleDesc.txt.minisig")); },
              "configDesc.txt", "its signature does not match its contents", nullptr},
        Fault{"ModuleListChangedAfterSigning",
              [](auto& t) { t.edit("/lists/Standard.modules.txt", "core.so,3.4.0", "core.so,3.4.1"); },
              "Standard.modules.txt", "its signature does not match its contents", "1\n",
              {"bin/core.so", "bin/quotes.so"}},
        Fault{"SignedByAnotherKey", [](auto& t) { t.keys = "PublicKey=" + kOtherKey; }, "configDesc.txt",
              "it is signed by key CC77C9235104B2D3, which is not configured", nullptr},
        // A typo in the key must not switch the check off.
        Fault{"KeyMistyped", [](auto& t) { t.keys = "PublicKey=RWQnot-a-key"; }, "configDesc.txt",
              "it is signed by key CC77C9235104B2D3, which is not configured", nullptr},
        // Rotation done and the first key dropped: the check stays on.
        Fault{"OnlyALaterKeyConfigured", [](auto& t) { t.keys = "PublicKey3=" + kOtherKey; }, "configDesc.txt",
              "it is signed by key CC77C9235104B2D3, which is not configured", nullptr},
        Fault{"Expired", [](auto& t) { t.sign("/configDesc.txt", {"-t", "serial=1 expires=2020-01-01T00:00:00Z"}); },
              "configDesc.txt", "its signature expired at 2020-01-01T00:00:00Z", nullptr},
        Fault{"Rollback", [](auto& t) { writeText(t.downloadDir + "/accepted-serial", "2\n"); }, "configDesc.txt",
              "its serial 1 is older than serial 2, already accepted", "2\n"},
        // Damage must not let an older release in: it counts as the highest serial.
        Fault{"AcceptedSerialDamaged", [](auto& t) { writeText(t.downloadDir + "/accepted-serial", "x\n"); },
              "configDesc.txt", "its serial 1 is older than serial 9223372036854775807", "x\n"},
        Fault{"TrustedCommentChanged", [](auto& t) { t.edit("/configDesc.txt.minisig", "serial=1", "serial=9"); },
              "configDesc.txt", "the signature of its trusted comment does not match", nullptr},
        Fault{"MinisignsDefaultComment", [](auto& t) { t.sign("/configDesc.txt", {}); }, "configDesc.txt",
              "its trusted comment gives no serial=N and expires=TIME", nullptr},
        Fault{"UnhashedLegacySignature", [](auto& t) { t.sign("/configDesc.txt", {"-l", "-t", kComment}); },
              "configDesc.txt", "its signature is malformed: it signs the file unhashed", nullptr},
        Fault{"SignatureCutShort", [](auto& t) { t.edit("/configDesc.txt.minisig", "\nRUTTsgRRI8l3zIXl", "\nRUTT"); },
              "configDesc.txt", "its signature is malformed: its signature line is not", nullptr},
        Fault{"ErrorPageForSignature", [](auto& t) { t.serve("/configDesc.txt.minisig", "<html>"); },
              "configDesc.txt", "its signature is malformed: it has 1 lines instead of 4", nullptr},
        Fault{"NoSignature", [](auto& t) { QFile::remove(t.serverRoot + "/configDesc.txt.minisig"); },
              "configDesc.txt", "it has no signature", nullptr},
        Fault{"FileChangedOnTheServer", [](auto& t) { t.edit(kQuotes, "\x1f\x8b", "\x1f\x8c"); }, "quotes.so",
              "its SHA-256 "},
        Fault{"AnotherReleasesFile", [](auto& t) { t.serve(kQuotes, t.served("/files/alerts.so.gz")); }, "quotes.so",
              "its SHA-256 07e59da4cc7d61389d734609d9f059adae6383ec04346e7c5c4e2fb70d7fac39 is not the " + kQuotesHash
                  + " its list gives"},
        Fault{"EndlessData", [](auto& t) { t.serve(kQuotes, t.served(kQuotes) + QByteArray(64 * 1024, 'x')); },
              "quotes.so", "it is longer than the 19456 bytes its list allows"},
        // Signed lists must name every file by hash.
        Fault{"FileListedWithoutHash",
              [](auto& t) {
                  t.edit("/lists/Standard.modules.txt", ",18," + kQuotesHash, ",18");
                  t.sign("/lists/Standard.modules.txt", {"-t", kComment});
              },
              "quotes.so", "its list gives no SHA-256 for it"},
        // The bound counts the held bytes: the rest alone would fit.
        Fault{"ResumedPastTheListedSize",
              [](auto& t) {
                  t.killMidQuotes();
                  t.serve(kQuotes, t.served(kQuotes) + QByteArray(2100, 'x'));
              },
              "quotes.so", "it is longer than the 19456 bytes its list allows"}),
    [](const ::testing::TestParamInfo<Fault>& info) { return std::string(info.param.name); });

// A release signed with the next key of a rotation (PublicKey2) installs
// whole, every file verified; every list of the release carries the same
// serial, accepted again and again.
TEST_F(SignatureFaults, ARotatedKeysReleaseInstallsWithEveryFileVerified)
{
    keys = "PublicKey=" + kOtherKey + "\r\nPublicKey2=" + releaseKey();
    ASSERT_NO_FATAL_FAILURE(run());
    EXPECT_TRUE(result.log.contains("Installation ended: 8")) << qPrintable(result.log);
    EXPECT_EQ(8, result.log.count("Verified ")) << qPrintable(result.log);
    EXPECT_FALSE(result.log.contains("refused")) << qPrintable(result.log);
    EXPECT_EQ(QByteArray("1\n"), readFile(downloadDir + "/accepted-serial"));
}

}  // namespace
