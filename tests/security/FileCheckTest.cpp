// Fetched files checked against their list: the SHA-256 taken as the bytes
// arrive (a resumed file's kept part included) must be the file as it lies
// on disk and the list's; a file longer than its list allows is cut off.
// The list's hash reaches the check through the parser and the state file.
#include <QCryptographicHash>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "tests/support/TestHost.h"
#include "host/app/HostBridge.h"
#include "host/app/HostProfile.h"
#include "host/app/HostWindow.h"
#include "protocol/ModuleApi.h"
#include "support/FaultServer.h"
#include "support/FileHelpers.h"
#include "support/RecordingClient.h"
#include "support/WaitFor.h"
#include "transfer/DownloadHttp.h"
#include "update/FileHashes.h"
#include "update/ModuleListParser.h"
#include "update/SaveParamDownload.h"

namespace {

QByteArray sha256(const QByteArray& bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex();
}

ScriptedReply partialReply(const QByteArray& whole, int from)
{
    return {"HTTP/1.1 206 Partial Content\r\nContent-Range: bytes " + QByteArray::number(from) + "-"
            + QByteArray::number(whole.size() - 1) + "/" + QByteArray::number(whole.size())
            + "\r\nContent-Length: " + QByteArray::number(whole.size() - from) + "\r\n\r\n" + whole.mid(from)};
}

}  // namespace

// The listed file is 5000 bytes, listed as 5 kB: at most 6144 bytes. 1300
// bytes on disk are resumed from byte 1044 (the last 256 are never trusted).
TEST(FileCheck, AFetchedFileIsAcceptedOnlyWhenWhatArrivedIsTheListedFile)
{
    const QByteArray body = patternBytes(5000, 7);
    const QByteArray stale = patternBytes(1300, 99);
    const QByteArray endless = patternBytes(9000, 7);
    const QByteArray longer = patternBytes(7000, 7);  // its rest alone would fit
    const ListedHash listed{sha256(body), 5};
    const struct {
        const char* why;
        QByteArray onDisk;  // empty: nothing
        ScriptedReply reply;
        bool accepted;
        bool overran;
    } rows[] = {
        {"whole file", QByteArray(), okReply(body), true, false},
        {"resumed: kept bytes and the rest", body.left(1300), partialReply(body, 1044), true, false},
        {"200 to a resume rewrites the stale kept bytes", stale, okReply(body), true, false},
        {"resumed onto another file's kept bytes", stale, partialReply(body, 1044), false, false},
        {"server changed the file", QByteArray(), okReply(patternBytes(5000, 8)), false, false},
        {"endless data is cut at the listed size", QByteArray(), okReply(endless), false, true},
        {"the kept bytes count towards the bound", longer.left(1300), partialReply(longer, 1044), false, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        TestHost host;
        RecordingClient client;
        QTemporaryDir dir;
        const QString local = dir.filePath(QStringLiteral("mod.gz"));
        if (!row.onDisk.isEmpty())
            writeText(local, row.onDisk);
        FaultServer server({row.reply});
        CDownloadHttp http(&client, QStringLiteral("http://127.0.0.1:%1/Win32").arg(server.port()));
        http.checkNextFile(listed.maxBytes());
        http.getFile(QStringLiteral("/mod.gz"), dir.path(), 0, CDownloadHttp::KindDownloadModule, 0, false);
        ASSERT_TRUE(waitFor([&] { return client.completions() > 0; }));

        const FetchDigest fetched = http.lastFetch();
        const FileVerdict verdict = checkFetchedFile(listed, fetched, true);
        EXPECT_EQ(row.accepted, verdict.accepted) << verdict.reason.toStdString();
        EXPECT_EQ(row.overran, fetched.overran);
        ASSERT_EQ(1, server.connections);
        // An overrun file is deleted and reported failed (1) without a hash;
        // otherwise the hash taken on the way in is the file's on disk.
        const QByteArray onDisk = readFile(local);
        const auto digest = [](const QByteArray& hash, qint64 bytes, int result) {
            return hash + ' ' + QByteArray::number(bytes) + ' ' + QByteArray::number(result);
        };
        EXPECT_EQ(row.overran ? digest("", listed.maxBytes(), 1) : digest(sha256(onDisk), onDisk.size(), 0),
                  digest(fetched.sha256, fetched.bytes, client.calls.last().number));
        EXPECT_EQ(!row.overran, QFile::exists(local));
    }
}

// An unchecked fetch has no hash: with one listed it is refused, and without
// one it passes only while lists are not signed.
TEST(FileCheck, WithoutAHashAFileIsCheckedOnlyWhenTheListGivesOne)
{
    const FetchDigest hashed{sha256("x"), 1, false};
    EXPECT_FALSE(checkFetchedFile(ListedHash{sha256("x"), 1}, FetchDigest{QByteArray(), 10, false}, false).accepted);
    EXPECT_TRUE(checkFetchedFile(ListedHash(), hashed, false).accepted);
    EXPECT_FALSE(checkFetchedFile(ListedHash(), hashed, false).checked);
    EXPECT_FALSE(checkFetchedFile(ListedHash(), hashed, true).accepted);
}

// A list's ninth field is kept beside the offered records and in the state
// file, so a run continued after a restart checks what the list said.
TEST(FileCheck, TheListsHashReachesAContinuedRunThroughTheStateFile)
{
    const QByteArray hash = sha256("a.so's bytes");
    const struct {
        QByteArray line;
        QByteArray sha256;  // empty: none kept
        qint64 sizeKb;
    } rows[] = {
        {"a.so,1.0.0,x,0,/d,/f/a.gz,T,12," + hash, hash, 12},
        {"b.so,1.0.0,x,0,/d,/f/b.gz,T,3," + hash + ",later fields", hash, 3},
        {"c.so,1.0.0,x,0,/d,/f/c.gz,T,3", "", 0},  // a list as before
        {"d.so,1.0.0,x,0,/d,/f/d.gz,T,3,", "", 0},
        {"e.so,1.0.0,x,0,/d,/f/e.gz,T,3," + hash.toUpper(), "", 0},  // upper case is not the format
        {"f.so,1.0.0,x,0,/d,/f/f.gz,T,3," + hash.left(63), "", 0},   // one digit short
    };
    QStringList lines;
    for (const auto& row : rows)
        lines << QString::fromLatin1(row.line);
    dlListModule list;
    CListedHashes parsed;
    parseModuleLines(lines, list, ModuleListBasis(), &parsed);
    ASSERT_EQ(int(std::size(rows)), list.count);

    // The state file through the reference host's parameter store.
    QTemporaryDir dir;
    HostProfile profile;
    HostWindow window;
    ASSERT_TRUE(profile.parse("{}", dir.path()));
    HostBridge bridge(profile, &window);
    ::Initialize(&HostBridge::send, &HostBridge::post, bridge.hostObject(), nullptr);
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
        EXPECT_EQ(rows[i].sha256, parsed.value(list.modules[i]).sha256) << rows[i].line.constData();
        EXPECT_EQ(rows[i].sha256 + ' ' + QByteArray::number(rows[i].sizeKb),
                  kept.sha256 + ' ' + QByteArray::number(kept.sizeKb)) << rows[i].line.constData();
    }
    ::Initialize(nullptr, nullptr, nullptr, nullptr);
}
