// Signed releases below the whole run (whose refusals, a list changed after
// signing among them, are tests/e2e's SignatureFaults): what the publisher
// signs minisign and the module accept, the SHA-256 taken as a file arrives
// is the file on disk, and the list's hash survives the state file.
#include <QCryptographicHash>
#include <QDirIterator>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "storage/StorageFiles.h"
#include "support/FaultServer.h"
#include "support/RecordingClient.h"
#include "support/WaitFor.h"
#include "transfer/DownloadHttp.h"
#include "update/FileHashes.h"
#include "update/ListSignature.h"
#include "update/ModuleListParser.h"
#include "update/SaveParamDownload.h"

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
    *output = process.readAll();
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

QByteArray sha256(const QByteArray& bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex();
}

}  // namespace

// Every text of the shipped sample tree (the publisher's signed output, see
// tests/publish) carries a signature that minisign and the module accept.
TEST(PublisherSignatures, EveryFetchedTextOfTheSignedSampleIsAcceptedByMinisignAndTheModule)
{
    const QString publicFile = kSourceDir + "/examples/signing/release.pub";
    MinisignPublicKey key;
    ASSERT_TRUE(MinisignPublicKey::parse(readFile(publicFile), key));
    int texts = 0;
    QDirIterator it(kSourceDir + "/examples/server", {"*.txt"}, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        SCOPED_TRACE(path.toStdString());
        ++texts;
        QByteArray output;
        ASSERT_EQ(0, run(DM_MINISIGN_PATH, {"-V", "-p", publicFile, "-m", path}, &output)) << output.toStdString();
        EXPECT_TRUE(output.contains("Trusted comment: serial=1 expires=2036-01-01T00:00:00Z")) << output.toStdString();
        const ListVerdict verdict = ListSignature::verify(readFile(path), readFile(path + ".minisig"), {key}, 1, kNow);
        EXPECT_TRUE(verdict.accepted) << verdict.reason.toStdString();
    }
    EXPECT_EQ(19, texts);
}

// Serial and expiry from the flags, with a key minisign made.
TEST(PublisherSignatures, FlagsGiveTheTrustedCommentAndAKeyMinisignMadeSigns)
{
    QTemporaryDir dir;
    const QString publicFile = dir.filePath("release.pub"), secretFile = dir.filePath("release.key");
    const QString manifest = kSourceDir + "/examples/release/manifest.json";
    QByteArray output;
    ASSERT_EQ(0, run(DM_MINISIGN_PATH, {"-G", "-W", "-p", publicFile, "-s", secretFile}, &output)) << output.data();
    ASSERT_EQ(0, run(DM_PUBLISHER_PATH, {"--sign", secretFile, "--serial", "42", "--expires", "2040-02-29T23:59:59Z",
                                         manifest, dir.filePath("server")}, &output)) << output.toStdString();
    const QString list = dir.filePath("server/lists/Standard.modules.txt");
    ASSERT_EQ(0, run(DM_MINISIGN_PATH, {"-V", "-p", publicFile, "-m", list}, &output)) << output.toStdString();
    EXPECT_TRUE(output.contains("Trusted comment: serial=42 expires=2040-02-29T23:59:59Z")) << output.toStdString();

    // An encrypted key cannot be used unattended and is refused by name. Its
    // header says scrypt ("Sc"); making a real one would cost scrypt's
    // gigabyte for nothing the publisher reads.
    const QList<QByteArray> lines = readFile(secretFile).split('\n');
    QByteArray bytes = QByteArray::fromBase64(lines.value(1));
    ASSERT_EQ(158, bytes.size());
    bytes.replace(2, 2, "Sc");
    const QString encrypted = dir.filePath("encrypted.key");
    writeText(encrypted, lines.value(0) + '\n' + bytes.toBase64() + '\n');
    EXPECT_EQ(2, run(DM_PUBLISHER_PATH, {"--sign", encrypted, manifest, dir.filePath("again")}, &output));
    EXPECT_TRUE(output.contains("minisign -G -W")) << output.toStdString();
}

// What the HTTP client hashes on the way in is the file as it lies on disk:
// the kept part of a resumed file included, and a server that answers a
// resume with the whole file (200) replaces the stale kept bytes.
TEST(FileCheck, TheHashTakenAsAFileArrivesIsTheFileOnDisk)
{
    const QByteArray body = patternBytes(5000, 7);
    const struct {
        const char* why;
        QByteArray onDisk;  // empty: nothing
        ScriptedReply reply;
    } rows[] = {
        {"whole file", QByteArray(), okReply(body)},
        {"resumed: kept bytes and the rest", body.left(1300),
         {"HTTP/1.1 206 Partial Content\r\nContent-Range: bytes 1044-4999/5000\r\nContent-Length: 3956\r\n\r\n"
          + body.mid(1044)}},
        {"200 to a resume rewrites the stale kept bytes", patternBytes(1300, 99), okReply(body)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        TestHost host;
        RecordingClient client;
        QTemporaryDir dir;
        if (!row.onDisk.isEmpty())
            writeText(dir.filePath("mod.gz"), row.onDisk);
        FaultServer server({row.reply});
        CDownloadHttp http(&client, QStringLiteral("http://127.0.0.1:%1/Win32").arg(server.port()));
        const ListedHash listed{sha256(body), 5};
        http.checkNextFile(listed.maxBytes());
        http.getFile(QStringLiteral("/mod.gz"), dir.path(), 0, CDownloadHttp::KindDownloadModule, 0, false);
        ASSERT_TRUE(waitFor([&] { return client.completions() > 0; }));
        EXPECT_EQ(body, readFile(dir.filePath("mod.gz")));
        EXPECT_TRUE(checkFetchedFile(listed, http.lastFetch(), true).accepted) << http.lastFetch().sha256.constData();
        EXPECT_EQ(0, client.calls.last().number);
    }
}

// A list's ninth field is kept beside the offered records and in the state
// file, so a run continued after a restart checks what the list said.
TEST(FileCheck, TheListsHashReachesAContinuedRunThroughTheStateFile)
{
    const QByteArray hash = sha256("a.so's bytes");
    // A list line and the hash and size kept for it (" 0": none).
    const std::pair<QByteArray, QByteArray> rows[] = {
        {"a.so,1.0.0,x,0,/d,/f/a.gz,T,12," + hash, hash + " 12"},
        {"b.so,1.0.0,x,0,/d,/f/b.gz,T,3," + hash + ",later fields", hash + " 3"},
        {"c.so,1.0.0,x,0,/d,/f/c.gz,T,3", " 0"},  // a list as before
        {"d.so,1.0.0,x,0,/d,/f/d.gz,T,3,", " 0"},
        {"e.so,1.0.0,x,0,/d,/f/e.gz,T,3," + hash.toUpper(), " 0"},  // upper case is not the format
        {"f.so,1.0.0,x,0,/d,/f/f.gz,T,3," + hash.left(63), " 0"},   // one digit short
    };
    QStringList lines;
    for (const auto& row : rows)
        lines << QString::fromLatin1(row.first);
    dlListModule list;
    CListedHashes parsed;
    parseModuleLines(lines, list, ModuleListBasis(), &parsed);
    ASSERT_EQ(int(std::size(rows)), list.count);

    // The state file through the reference host's parameter store.
    QTemporaryDir dir;
    StoreTestHost host;
    CSaveParamDownload store(dir.path());
    store.createLastDownload(list.count);
    for (int i = 0; i < list.count; ++i)
        store.saveLastDownloadModule(list.modules[i], 1, parsed.value(list.modules[i]));
    // Later steps know nothing of hashes and must not lose them.
    for (int i = 0; i < list.count; ++i)
        store.changeStateLastDownloadModule(list.modules[i], 2);

    CListedHashes continued;
    EXPECT_EQ(2, store.getLastDownloadHashes(continued));
    for (int i = 0; i < list.count; ++i) {
        const ListedHash kept = continued.value(list.modules[i]);
        EXPECT_EQ(rows[i].second, kept.sha256 + ' ' + QByteArray::number(kept.sizeKb)) << rows[i].first.constData();
    }
}
