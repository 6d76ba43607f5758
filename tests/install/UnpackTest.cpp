// Unpacking a downloaded gzip file next to itself. Large, damaged and missing
// downloads are rows of tests/update/WorkflowInstallTest.cpp.
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

}  // namespace

// The compressed file is replaced by its content under the name less its
// suffix (in any case); the record's path follows and its state is recorded
// as fetched, the rest of the record is left as it was. A path of 255
// characters (the whole field, no terminator) is read within the field.
TEST(Unpack, ReplacesTheCompressedFileByTheNameLessItsSuffix)
{
    QTemporaryDir dir;
    const struct {
        const char* file;  // empty: a path that fills the field
        QByteArray content;
        QByteArray older = {};  // an unpacked file of the same name already there; null: none
    } cases[] = {{"quotes.so.Gz", "mixed"},
                 {"empty.dat.gz", ""},
                 {"quotes.so.gz", "new", QByteArray(100000, 'o')},
                 {"", "field full"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        const QString compressed =
            dir.filePath(*c.file ? QString(c.file) : QString(int(kDlTextSize) - dir.path().size() - 4, 'm') + ".gz");
        const QString unpacked = compressed.chopped(3);
        if (!c.older.isNull()) {
            ASSERT_TRUE(writeText(unpacked, c.older));
        }
        writeGzip(compressed, c.content);
        dlModule module = emptyDlModule();
        setDlText(module.name, "quotes.so");
        const QByteArray local = compressed.toLocal8Bit();
        std::memcpy(module.localPath, local.constData(), std::min<std::size_t>(local.size() + 1, kDlTextSize));
        module.state = dlStateToFetch;
        std::vector<std::pair<QByteArray, int>> recorded;  // local path and state
        ASSERT_TRUE(unzipDownloadedModule(module, [&recorded](const dlModule& m, int state) {
            recorded.push_back({dlText(m.localPath), state});
        }));

        EXPECT_FALSE(QFile::exists(compressed));
        EXPECT_TRUE(QFile::exists(unpacked));
        EXPECT_EQ(c.content, readFile(unpacked));
        EXPECT_EQ(unpacked.toLocal8Bit(), dlText(module.localPath));
        EXPECT_EQ((std::vector<std::pair<QByteArray, int>>{{unpacked.toLocal8Bit(), dlStateFetched}}), recorded);
        EXPECT_EQ(QByteArray("quotes.so"), dlText(module.name));
        EXPECT_EQ(dlStateToFetch, module.state);
    }
}
