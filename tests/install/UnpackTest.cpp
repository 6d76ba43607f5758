// Unpacking a downloaded gzip file next to itself.
#include <cstring>
#include <vector>

#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <zlib.h>

#include "InstallTestSupport.h"
#include "storage/StoreTestHost.h"
#include "update/SaveParamDownload.h"
#include "update/Unpack.h"

namespace {

struct Recorded {
    QByteArray localPath;
    int state;
};

void writeGzip(const QString& path, const QByteArray& content)
{
    gzFile gz = gzopen(QFile::encodeName(path).constData(), "wb");
    ASSERT_NE(nullptr, gz);
    if (!content.isEmpty()) {
        ASSERT_EQ(content.size(), gzwrite(gz, content.constData(), unsigned(content.size())));
    }
    ASSERT_EQ(Z_OK, gzclose(gz));
}

QByteArray randomBytes(int size, quint32 seed)
{
    QRandomGenerator generator(seed);
    QByteArray bytes(size, '\0');
    for (char& byte : bytes)
        byte = char(generator.bounded(256));
    return bytes;
}

dlModule recordFor(const QString& path)
{
    dlModule module = emptyDlModule();
    setDlText(module.name, "quotes.so");
    setDlText(module.localPath, path.toLocal8Bit());
    module.state = dlStateToFetch;
    return module;
}

class Unpack : public ::testing::Test {
protected:
    QTemporaryDir dir;
    std::vector<Recorded> recorded;
    UnpackedRecorder recorder = [this](const dlModule& module, int state) {
        recorded.push_back({dlText(module.localPath), state});
    };

    QString path(const QString& name) const { return dir.filePath(name); }
};

}  // namespace

class UnpackSuffix : public Unpack, public ::testing::WithParamInterface<const char*> {
};

TEST_P(UnpackSuffix, ReplacesTheCompressedFileByTheNameLessItsSuffix)
{
    const QString compressed = path(QString("quotes.so.") + GetParam());
    // Several buffers' worth and an odd tail, so every round of the copy counts.
    const QByteArray content = randomBytes(3 * kUnpackBufferSize + 123, 1);
    writeGzip(compressed, content);
    dlModule module = recordFor(compressed);

    ASSERT_TRUE(unzipDownloadedModule(module, recorder));

    EXPECT_FALSE(QFile::exists(compressed));
    EXPECT_EQ(content, fileContent(path("quotes.so")));
    EXPECT_EQ(path("quotes.so").toLocal8Bit(), dlText(module.localPath));
    ASSERT_EQ(1u, recorded.size());
    EXPECT_EQ(path("quotes.so").toLocal8Bit(), recorded[0].localPath);
    EXPECT_EQ(dlStateFetched, recorded[0].state);
    // The rest of the record is left as it was.
    EXPECT_EQ(QByteArray("quotes.so"), dlText(module.name));
    EXPECT_EQ(dlStateToFetch, module.state);
}

INSTANTIATE_TEST_SUITE_P(AnyCase, UnpackSuffix, ::testing::Values("gz", "GZ", "Gz"));

TEST_F(Unpack, LeavesFilesWithoutTheSuffixAndMissingFilesAlone)
{
    for (const char* name : {"quotes.so", "quotes.tgz", "quotes.gz.part", "quotesgz"}) {
        SCOPED_TRACE(name);
        writeGzip(path(name), "compressed but not named so");
        const QByteArray before = fileContent(path(name));
        dlModule module = recordFor(path(name));

        EXPECT_FALSE(unzipDownloadedModule(module, recorder));
        EXPECT_EQ(before, fileContent(path(name)));
        EXPECT_EQ(path(name).toLocal8Bit(), dlText(module.localPath));
    }
    dlModule missing = recordFor(path("absent.gz"));
    EXPECT_FALSE(unzipDownloadedModule(missing, recorder));
    EXPECT_FALSE(QFile::exists(path("absent")));
    EXPECT_TRUE(recorded.empty());
    EXPECT_EQ(4u, QDir(dir.path()).entryList(QDir::Files).size());
}

TEST_F(Unpack, AnEmptyStreamGivesAnEmptyFile)
{
    writeGzip(path("empty.dat.gz"), QByteArray());
    dlModule module = recordFor(path("empty.dat.gz"));

    ASSERT_TRUE(unzipDownloadedModule(module, recorder));
    EXPECT_EQ(QByteArray(), fileContent(path("empty.dat")));
    EXPECT_FALSE(QFile::exists(path("empty.dat.gz")));
    EXPECT_EQ(1u, recorded.size());
}

TEST_F(Unpack, OverwritesAnOlderUnpackedFileOfTheSameName)
{
    ASSERT_TRUE(writeFile(path("quotes.so"), QByteArray(100000, 'o')));
    writeGzip(path("quotes.so.gz"), "new");
    dlModule module = recordFor(path("quotes.so.gz"));

    ASSERT_TRUE(unzipDownloadedModule(module, recorder));
    EXPECT_EQ(QByteArray("new"), fileContent(path("quotes.so")));
}

TEST_F(Unpack, AnOutputThatCannotBeOpenedChangesNothing)
{
    // A folder stands where the unpacked file would go.
    ASSERT_TRUE(QDir(dir.path()).mkdir("quotes.so"));
    writeGzip(path("quotes.so.gz"), "payload");
    dlModule module = recordFor(path("quotes.so.gz"));

    EXPECT_FALSE(unzipDownloadedModule(module, recorder));
    EXPECT_TRUE(QFile::exists(path("quotes.so.gz")));
    EXPECT_EQ(path("quotes.so.gz").toLocal8Bit(), dlText(module.localPath));
    EXPECT_TRUE(recorded.empty());
}

TEST_F(Unpack, PathsAtTheBoundOfTheRecordField)
{
    // 254 characters: the longest path the record holds with its terminator.
    const QString prefix = dir.path() + "/";
    const QString longest = prefix + QString(254 - prefix.size() - 3, 'm') + ".gz";
    ASSERT_EQ(254, longest.size());
    writeGzip(longest, "at the bound");
    dlModule module = recordFor(longest);
    ASSERT_TRUE(unzipDownloadedModule(module, recorder));
    EXPECT_EQ(longest.left(251).toLocal8Bit(), dlText(module.localPath));
    EXPECT_EQ(QByteArray("at the bound"), fileContent(longest.left(251)));

    // 255 characters fill the field with no terminator; the path is still read
    // within the field and the shorter result fits.
    const QString full = prefix + QString(255 - prefix.size() - 3, 'n') + ".GZ";
    ASSERT_EQ(255, full.size());
    writeGzip(full, "field full");
    dlModule unterminated = recordFor(QString());
    std::memcpy(unterminated.localPath, full.toLocal8Bit().constData(), kDlTextSize);
    ASSERT_TRUE(unzipDownloadedModule(unterminated, recorder));
    EXPECT_EQ(full.left(252).toLocal8Bit(), dlText(unterminated.localPath));
    EXPECT_EQ(QByteArray("field full"), fileContent(full.left(252)));
}

class UnpackBrokenStream : public Unpack, public ::testing::WithParamInterface<const char*> {
};

TEST_P(UnpackBrokenStream, FailsAndKeepsTheCompressedFileAndTheRecord)
{
    const QString compressed = path("quotes.so.gz");
    ASSERT_TRUE(QFile::copy(QString(DM_SOURCE_DIR "/tests/install/data/") + GetParam(), compressed));
    const QByteArray before = fileContent(compressed);
    dlModule module = recordFor(compressed);

    EXPECT_FALSE(unzipDownloadedModule(module, recorder));

    EXPECT_EQ(before, fileContent(compressed));
    EXPECT_TRUE(QFile::exists(path("quotes.so")));  // the partial output stays
    EXPECT_EQ(compressed.toLocal8Bit(), dlText(module.localPath));
    EXPECT_TRUE(recorded.empty());
}

INSTANTIATE_TEST_SUITE_P(DataFiles, UnpackBrokenStream,
                         ::testing::Values("gzip-truncated-mid-stream.gz", "gzip-truncated-trailer.gz",
                                           "gzip-bad-crc.gz", "gzip-corrupt-deflate-data.gz"));

TEST_F(Unpack, DecompressModuleReportsEndOfStreamAndReadFailure)
{
    const QByteArray content = randomBytes(kUnpackBufferSize, 2);
    writeGzip(path("exact.gz"), content);
    gzFile gz = gzopen(QFile::encodeName(path("exact.gz")).constData(), "rb");
    ASSERT_NE(nullptr, gz);
    FILE* out = std::fopen(QFile::encodeName(path("exact")).constData(), "w+b");
    ASSERT_NE(nullptr, out);
    EXPECT_EQ(0, decompressModule(gz, out));
    gzclose(gz);
    std::fclose(out);
    EXPECT_EQ(content, fileContent(path("exact")));

    gz = gzopen(DM_SOURCE_DIR "/tests/install/data/gzip-truncated-mid-stream.gz", "rb");
    ASSERT_NE(nullptr, gz);
    out = std::fopen(QFile::encodeName(path("partial")).constData(), "w+b");
    ASSERT_NE(nullptr, out);
    EXPECT_EQ(-1, decompressModule(gz, out));
    gzclose(gz);
    std::fclose(out);
    // What came before the cut was written out.
    EXPECT_TRUE(fileContent(path("partial")).startsWith("line 00000 of a module"));
}

TEST_F(Unpack, TheStateFileRecordsTheUnpackedFileOnlyOnSuccess)
{
    StoreTestHost host;
    CSaveParamDownload saveParam(path("state"));
    writeGzip(path("good.so.gz"), "good");
    ASSERT_TRUE(QFile::copy(DM_SOURCE_DIR "/tests/install/data/gzip-truncated-mid-stream.gz", path("cut.so.gz")));
    dlModule good = recordFor(path("good.so.gz"));
    setDlText(good.name, "good.so");
    dlModule cut = recordFor(path("cut.so.gz"));
    setDlText(cut.name, "cut.so");
    saveParam.createLastDownload(2);
    saveParam.saveLastDownloadModule(good, dlStateToFetch);
    saveParam.saveLastDownloadModule(cut, dlStateToFetch);

    EXPECT_TRUE(unzipDownloadedModule(good, saveParam));
    EXPECT_FALSE(unzipDownloadedModule(cut, saveParam));

    ASSERT_EQ(1, saveParam.getCountStateLastDownloadModule(dlStateFetched));
    dlModule stored = emptyDlModule();
    ASSERT_EQ(1, saveParam.getLastDownloadModule(dlStateFetched, 1, &stored));
    EXPECT_EQ(QByteArray("good.so"), dlText(stored.name));
    EXPECT_EQ(path("good.so").toLocal8Bit(), dlText(stored.localPath));
    EXPECT_EQ(1, saveParam.getCountStateLastDownloadModule(dlStateToFetch));
}
