// Signed lists: what Debian's minisign signs the module accepts, what the
// publisher signs minisign accepts, and a list is refused for each way a
// server or the path to it can serve the wrong one.
#include <limits>

#include <QDirIterator>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "support/FileHelpers.h"
#include "update/ListSignature.h"

namespace {

const QString kSourceDir = QStringLiteral(DM_SOURCE_DIR);
const QDateTime kNow(QDate(2030, 6, 1), QTime(12, 0), Qt::UTC);

// The program's exit code; its output (both channels) into output.
int run(const QString& program, const QStringList& arguments, QByteArray* output)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForFinished(-1))
        return -1;
    if (output)
        *output = process.readAll();
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

// A key pair made by minisign itself.
struct CliKey {
    QString publicFile;
    QString secretFile;
    QByteArray publicLine;  // what download.cfg names
};

CliKey makeKey(const QTemporaryDir& dir, const QString& name)
{
    CliKey key{dir.filePath(name + ".pub"), dir.filePath(name + ".key"), QByteArray()};
    QByteArray output;
    EXPECT_EQ(0, run(DM_MINISIGN_PATH, {"-G", "-W", "-f", "-p", key.publicFile, "-s", key.secretFile}, &output))
        << output.toStdString();
    key.publicLine = readFile(key.publicFile).split('\n').value(1).trimmed();
    return key;
}

// minisign's signature of file, with options such as {"-t", comment}.
QByteArray cliSign(const CliKey& key, const QString& file, const QStringList& options)
{
    QByteArray output;
    EXPECT_EQ(0, run(DM_MINISIGN_PATH, QStringList{"-S", "-s", key.secretFile, "-m", file} + options, &output))
        << output.toStdString();
    return readFile(file + ".minisig");
}

// The signature of a list valid until 2031 with that serial.
QByteArray signedAs(const CliKey& key, const QString& file, int serial, const char* expires = "2031-01-01T00:00:00Z")
{
    return cliSign(key, file, {"-t", "serial=" + QString::number(serial) + " expires=" + expires});
}

}  // namespace

// Every signature is minisign's own (the CLI's), checked with the keys a
// download.cfg names: PublicKey and, for rotation, PublicKey2.
TEST(ListSignature, AListIsUsedOnlyWhenSignedByAConfiguredKeyUnexpiredAndNotOlder)
{
    QTemporaryDir dir;
    const CliKey current = makeKey(dir, "current");
    const CliKey next = makeKey(dir, "next");
    const CliKey stranger = makeKey(dir, "stranger");
    const QString list = dir.filePath("moduleDesc.txt");
    const QByteArray listBytes = "core.so,3.4.0,3.4.0,1,/d/core.txt,/f/core.so.gz,2026-11-02,12,"
                                 + QByteArray(64, 'a') + "\n";
    writeText(list, listBytes);
    const QString cfg = dir.filePath("download.cfg");
    writeText(cfg, "[Address]\nPath=http://example\n[Signature]\nPublicKey=" + current.publicLine
                      + "\nPublicKey2=" + next.publicLine + "\n");
    const SignatureSettings settings = SignatureSettings::read(cfg);
    ASSERT_TRUE(settings.enabled);
    ASSERT_EQ(2, settings.keys.size()) << settings.errors.join("; ").toStdString();

    const QByteArray good = signedAs(current, list, 5);
    QByteArray forgedComment = good;
    forgedComment.replace("serial=5", "serial=9");
    QByteArray cutSignature = good;
    cutSignature.replace(cutSignature.indexOf('\n') + 5, 12, "");

    const struct {
        const char* why;
        QByteArray list;
        QByteArray minisig;
        qint64 highest;
        ListVerdict::Refusal refusal;
        qint64 serial;  // -1: none read
    } rows[] = {
        {"signed, serial above the accepted one", listBytes, good, 4, ListVerdict::None, 5},
        {"the same serial again (another list of the release)", listBytes, good, 5, ListVerdict::None, 5},
        {"rotation: signed with PublicKey2's key", listBytes, signedAs(next, list, 6), 5, ListVerdict::None, 6},
        {"list changed after signing", listBytes + "evil.so,9.9.9,3.4.0,1,/d,/f/evil.gz,x,1\n", good, 0,
         ListVerdict::BadSignature, -1},
        {"signed by a key nobody configured", listBytes, signedAs(stranger, list, 7), 0, ListVerdict::UnknownKey, -1},
        {"expired a second ago (a frozen server)", listBytes, signedAs(current, list, 8, "2030-06-01T11:59:59Z"), 0,
         ListVerdict::Expired, 8},
        {"older release's list (rollback)", listBytes, signedAs(current, list, 3), 4, ListVerdict::Rollback, 3},
        {"trusted comment changed after signing", listBytes, forgedComment, 0,
         ListVerdict::BadTrustedComment, -1},
        {"minisign's default comment: no serial, no expiry", listBytes, cliSign(current, list, {}), 0,
         ListVerdict::BadTrustedComment, -1},
        {"unhashed legacy signature (minisign -l)", listBytes,
         cliSign(current, list, {"-l", "-t", "serial=5 expires=2031-01-01T00:00:00Z"}), 0, ListVerdict::Malformed, -1},
        {"signature line cut short", listBytes, cutSignature, 0, ListVerdict::Malformed, -1},
        {"an error page instead of a signature", listBytes, "<html>404</html>\n", 0, ListVerdict::Malformed, -1},
        {"no signature", listBytes, QByteArray(), 0, ListVerdict::MissingSignature, -1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const ListVerdict verdict = ListSignature::verify(row.list, row.minisig, settings.keys, row.highest, kNow);
        EXPECT_EQ(row.refusal, verdict.refusal) << verdict.reason.toStdString();
        EXPECT_EQ(row.refusal == ListVerdict::None, verdict.accepted);
        EXPECT_FALSE(verdict.reason.isEmpty());
        EXPECT_TRUE(row.serial < 0 || row.serial == verdict.serial) << verdict.serial;
    }
}

TEST(ListSignature, KeysAndTheAcceptedSerialComeFromWhatTheInstallationKeeps)
{
    QTemporaryDir dir;
    const CliKey key = makeKey(dir, "current");
    const struct {
        const char* why;
        QByteArray cfg;
        bool enabled;
        int keys;
    } settingsRows[] = {
        {"no [Signature]: checking off", "[Address]\nPath=http://example\n", false, 0},
        // A typo must not turn checking off: nothing then verifies.
        {"a broken key", "[Signature]\nPublicKey=RWQnot-a-key\n", true, 0},
        {"PublicKey2 without PublicKey is not read", "[Signature]\nPublicKey2=" + key.publicLine + "\n", false, 0},
    };
    for (const auto& row : settingsRows) {
        SCOPED_TRACE(row.why);
        writeText(dir.filePath("download.cfg"), row.cfg);
        const SignatureSettings settings = SignatureSettings::read(dir.filePath("download.cfg"));
        EXPECT_EQ(row.enabled, settings.enabled);
        EXPECT_EQ(row.keys, settings.keys.size());
    }

    const QString folder = dir.filePath("download");
    EXPECT_EQ(0, AcceptedSerialStore(folder).highest());
    EXPECT_TRUE(AcceptedSerialStore(folder).raiseTo(12));
    EXPECT_TRUE(AcceptedSerialStore(folder).raiseTo(7));
    EXPECT_EQ(12, AcceptedSerialStore(folder).highest());  // read back by a new object, never lowered
    writeText(AcceptedSerialStore(folder).path(), "garbage\n");
    // Damage refuses every list instead of letting an old one in.
    EXPECT_EQ(std::numeric_limits<qint64>::max(), AcceptedSerialStore(folder).highest());
}

// The shipped sample tree is the publisher's signed output, and every text
// the module fetches carries a signature that minisign and the module accept.
TEST(PublisherSignatures, EveryFetchedTextOfTheSignedSampleIsAcceptedByMinisignAndTheModule)
{
    QTemporaryDir dir;
    const QString out = dir.filePath("server");
    const QString publicFile = kSourceDir + "/examples/signing/release.pub";
    QByteArray output;
    ASSERT_EQ(0, run(DM_PUBLISHER_PATH, {"--sign", kSourceDir + "/examples/signing/release.key",
                                         kSourceDir + "/examples/release/manifest.json", out},
                     &output))
        << output.toStdString();
    MinisignPublicKey key;
    ASSERT_TRUE(MinisignPublicKey::parse(readFile(publicFile), key));

    int texts = 0;
    int files = 0;
    QDirIterator it(out, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString relative = path.mid(out.size());
        ++files;
        EXPECT_EQ(readFile(path), readFile(kSourceDir + "/examples/server" + relative)) << relative.toStdString();
        if (!path.endsWith(".txt"))
            continue;
        ++texts;
        SCOPED_TRACE(relative.toStdString());
        ASSERT_EQ(0, run(DM_MINISIGN_PATH, {"-V", "-p", publicFile, "-m", path}, &output)) << output.toStdString();
        EXPECT_TRUE(output.contains("Trusted comment: serial=1 expires=2036-01-01T00:00:00Z")) << output.toStdString();
        const ListVerdict verdict = ListSignature::verify(readFile(path), readFile(path + ".minisig"), {key}, 1, kNow);
        EXPECT_TRUE(verdict.accepted) << verdict.reason.toStdString();
    }
    EXPECT_EQ(19, texts);
    EXPECT_EQ(32 + texts, files);  // a signature beside every text, nothing else added
}

// Serial and expiry from the flags, with a key minisign made.
TEST(PublisherSignatures, FlagsGiveTheTrustedCommentAndAKeyMinisignMadeSigns)
{
    QTemporaryDir dir;
    const CliKey key = makeKey(dir, "release");
    QByteArray output;
    ASSERT_EQ(0, run(DM_PUBLISHER_PATH, {"--sign", key.secretFile, "--serial", "42", "--expires",
                                         "2040-02-29T23:59:59Z", kSourceDir + "/examples/release/manifest.json",
                                         dir.filePath("server")},
                     &output))
        << output.toStdString();
    const QString list = dir.filePath("server/lists/Standard.modules.txt");
    ASSERT_EQ(0, run(DM_MINISIGN_PATH, {"-V", "-p", key.publicFile, "-m", list}, &output)) << output.toStdString();
    EXPECT_TRUE(output.contains("Trusted comment: serial=42 expires=2040-02-29T23:59:59Z")) << output.toStdString();

    // An encrypted key cannot be used unattended and is refused by name. Its
    // header says scrypt ("Sc"); making a real one would cost scrypt's
    // gigabyte for nothing the publisher reads.
    const QList<QByteArray> lines = readFile(key.secretFile).split('\n');
    QByteArray bytes = QByteArray::fromBase64(lines.value(1));
    ASSERT_EQ(158, bytes.size());
    bytes.replace(2, 2, "Sc");
    const QString encrypted = dir.filePath("encrypted.key");
    writeText(encrypted, lines.value(0) + '\n' + bytes.toBase64() + '\n');
    EXPECT_EQ(2, run(DM_PUBLISHER_PATH, {"--sign", encrypted, kSourceDir + "/examples/release/manifest.json",
                                         dir.filePath("again")},
                     &output));
    EXPECT_TRUE(output.contains("minisign -G -W")) << output.toStdString();
}
