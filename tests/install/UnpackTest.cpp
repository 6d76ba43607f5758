// Unpacking a downloaded gzip file next to itself.
#include <algorithm>
#include <cstring>
#include <vector>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <zlib.h>

#include "transfer/support/FileHelpers.h"
#include "update/Unpack.h"

namespace {

void writeGzip(const QString& path, const QByteArray& content)
{
    gzFile gz = gzopen(QFile::encodeName(path).constData(), "wb");
    ASSERT_NE(nullptr, gz);
    ASSERT_EQ(content.size(), gzwrite(gz, content.constData(), unsigned(content.size())));
    ASSERT_EQ(Z_OK, gzclose(gz));
}

struct Unpacked {
    const char* name;
    QString file;
    QByteArray content;
    QByteArray olderOutput;  // an unpacked file of the same name already there; null: none
};

class UnpackGood : public ::testing::TestWithParam<Unpacked> {
protected:
    // Unpacks the record naming path (the whole field when it fills it).
    bool unpack(const QString& path)
    {
        module = emptyDlModule();
        setDlText(module.name, "quotes.so");
        const QByteArray local = path.toLocal8Bit();
        std::memcpy(module.localPath, local.constData(), std::min<std::size_t>(local.size() + 1, kDlTextSize));
        module.state = dlStateToFetch;
        return unzipDownloadedModule(module, [this](const dlModule& m, int state) {
            recorded.push_back({dlText(m.localPath), state});
        });
    }
    QString path(const QString& name) const { return dir.filePath(name); }

    QTemporaryDir dir;
    dlModule module;
    std::vector<std::pair<QByteArray, int>> recorded;  // local path and state
};

}  // namespace

// The compressed file is replaced by its content under the name less its
// suffix (in any case); the record's path follows and its state is recorded
// as fetched, the rest of the record is left as it was. Paths of 254 and 255
// (the whole field, no terminator) characters are read within the field.
TEST_P(UnpackGood, ReplacesTheCompressedFileByTheNameLessItsSuffix)
{
    const Unpacked& c = GetParam();
    QString compressed = path(c.file);
    if (c.file.startsWith('/'))  // a length: the path is padded to it
        compressed = path(QString(c.file.mid(1).toInt() - dir.path().size() - 4, 'm') + ".gz");
    const QString unpacked = compressed.left(compressed.size() - 3);
    if (!c.olderOutput.isNull()) {
        ASSERT_TRUE(writeText(unpacked, c.olderOutput));
    }
    writeGzip(compressed, c.content);

    ASSERT_TRUE(unpack(compressed));

    EXPECT_FALSE(QFile::exists(compressed));
    EXPECT_TRUE(QFile::exists(unpacked));
    EXPECT_TRUE(readFile(unpacked) == c.content);
    EXPECT_EQ(unpacked.toLocal8Bit(), dlText(module.localPath));
    EXPECT_EQ((std::vector<std::pair<QByteArray, int>>{{unpacked.toLocal8Bit(), dlStateFetched}}), recorded);
    EXPECT_EQ(QByteArray("quotes.so"), dlText(module.name));
    EXPECT_EQ(dlStateToFetch, module.state);
}

INSTANTIATE_TEST_SUITE_P(
    Files, UnpackGood,
    ::testing::Values(
        // Several buffers' worth and an odd tail, so every round of the copy counts.
        Unpacked{"SeveralBuffers", "quotes.so.gz", patternBytes(3 * kUnpackBufferSize + 123, 1), QByteArray()},
        Unpacked{"MixedCaseSuffix", "quotes.so.Gz", "mixed", QByteArray()},
        // The end of the stream falls on the end of a buffer.
        Unpacked{"ExactlyOneBuffer", "exact.dat.gz", patternBytes(kUnpackBufferSize, 2), QByteArray()},
        Unpacked{"EmptyStream", "empty.dat.gz", QByteArray(""), QByteArray()},
        Unpacked{"OverAnOlderFile", "quotes.so.gz", "new", QByteArray(100000, 'o')},
        Unpacked{"LongestTerminatedPath", "/254", "at the bound", QByteArray()},
        Unpacked{"PathFillingTheField", "/255", "field full", QByteArray()}),
    [](const ::testing::TestParamInfo<Unpacked>& info) { return std::string(info.param.name); });
