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

const QString kData = DM_SOURCE_DIR "/tests/install/data/";

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

dlModule recordFor(const QString& path, const char* name = "quotes.so")
{
    dlModule module = emptyDlModule();
    setDlText(module.name, name);
    setDlText(module.localPath, path.toLocal8Bit());
    module.state = dlStateToFetch;
    return module;
}

class Unpack : public ::testing::Test {
protected:
    QTemporaryDir dir;
    std::vector<std::pair<QByteArray, int>> recorded;  // local path and state
    UnpackedRecorder recorder = [this](const dlModule& module, int state) {
        recorded.push_back({dlText(module.localPath), state});
    };

    QString path(const QString& name) const { return dir.filePath(name); }
};

struct Unpacked {
    const char* name;
    const char* file;
    QByteArray content;
    QByteArray olderOutput;  // an unpacked file of the same name already there; null: none
};

}  // namespace

class UnpackGood : public Unpack, public ::testing::WithParamInterface<Unpacked> {};

// The compressed file is replaced by its content under the name less its
// suffix (in any case); the record's path follows and its state is recorded
// as fetched, the rest of the record is left as it was.
TEST_P(UnpackGood, ReplacesTheCompressedFileByTheNameLessItsSuffix)
{
    const Unpacked& c = GetParam();
    const QString compressed = path(c.file);
    const QString unpacked = compressed.left(compressed.size() - 3);
    if (!c.olderOutput.isNull()) {
        ASSERT_TRUE(writeFile(unpacked, c.olderOutput));
    }
    writeGzip(compressed, c.content);
    dlModule module = recordFor(compressed);

    ASSERT_TRUE(unzipDownloadedModule(module, recorder));

    EXPECT_FALSE(QFile::exists(compressed));
    EXPECT_TRUE(fileContent(unpacked) == c.content);
    EXPECT_EQ(unpacked.toLocal8Bit(), dlText(module.localPath));
    EXPECT_EQ((std::vector<std::pair<QByteArray, int>>{{unpacked.toLocal8Bit(), dlStateFetched}}), recorded);
    EXPECT_EQ(QByteArray("quotes.so"), dlText(module.name));
    EXPECT_EQ(dlStateToFetch, module.state);
}

INSTANTIATE_TEST_SUITE_P(
    Files, UnpackGood,
    ::testing::Values(
        // Several buffers' worth and an odd tail, so every round of the copy counts.
        Unpacked{"SeveralBuffers", "quotes.so.gz", randomBytes(3 * kUnpackBufferSize + 123, 1), QByteArray()},
        Unpacked{"UpperCaseSuffix", "quotes.so.GZ", "upper", QByteArray()},
        Unpacked{"MixedCaseSuffix", "quotes.so.Gz", "mixed", QByteArray()},
        // The end of the stream falls on the end of a buffer.
        Unpacked{"ExactlyOneBuffer", "exact.dat.gz", randomBytes(kUnpackBufferSize, 2), QByteArray()},
        Unpacked{"EmptyStream", "empty.dat.gz", QByteArray(""), QByteArray()},
        Unpacked{"OverAnOlderFile", "quotes.so.gz", "new", QByteArray(100000, 'o')}),
    [](const ::testing::TestParamInfo<Unpacked>& info) { return std::string(info.param.name); });

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

class UnpackFails : public Unpack, public ::testing::WithParamInterface<const char*> {};

// A broken stream, or an output that cannot be opened (a folder in its way),
// fails and keeps the compressed file and the record; what was unpacked
// before the break stays in the partial output.
TEST_P(UnpackFails, KeepsTheCompressedFileAndTheRecord)
{
    const QString compressed = path("quotes.so.gz");
    if (QString(GetParam()) == "folder in the way") {
        ASSERT_TRUE(QDir(dir.path()).mkdir("quotes.so"));
        writeGzip(compressed, "payload");
    } else {
        ASSERT_TRUE(QFile::copy(kData + GetParam(), compressed));
    }
    const QByteArray before = fileContent(compressed);
    dlModule module = recordFor(compressed);

    EXPECT_FALSE(unzipDownloadedModule(module, recorder));

    EXPECT_EQ(before, fileContent(compressed));
    EXPECT_TRUE(QFile::exists(path("quotes.so")));
    EXPECT_EQ(compressed.toLocal8Bit(), dlText(module.localPath));
    EXPECT_TRUE(recorded.empty());
    if (QString(GetParam()) == "gzip-truncated-mid-stream.gz") {
        EXPECT_TRUE(fileContent(path("quotes.so")).startsWith("line 00000 of a module"));
    }
}

INSTANTIATE_TEST_SUITE_P(DataFiles, UnpackFails,
                         ::testing::Values("gzip-truncated-mid-stream.gz", "gzip-truncated-trailer.gz",
                                           "gzip-bad-crc.gz", "gzip-corrupt-deflate-data.gz", "folder in the way"));

TEST_F(Unpack, TheStateFileRecordsTheUnpackedFileOnlyOnSuccess)
{
    StoreTestHost host;
    CSaveParamDownload saveParam(path("state"));
    writeGzip(path("good.so.gz"), "good");
    ASSERT_TRUE(QFile::copy(kData + "gzip-truncated-mid-stream.gz", path("cut.so.gz")));
    dlModule good = recordFor(path("good.so.gz"), "good.so");
    dlModule cut = recordFor(path("cut.so.gz"), "cut.so");
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
