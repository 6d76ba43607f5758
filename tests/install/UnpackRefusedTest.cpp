// A download folder that refuses the unpacked bytes (a full disk; here the
// process's file size limit, which fails writes the same way) fails the
// unpacking: the module keeps its compressed file and its record, and no
// short module is left to hand over.
#include <csignal>

#include <sys/resource.h>

#include <zlib.h>

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "transfer/support/FileHelpers.h"
#include "update/Unpack.h"

TEST(UnpackRefused, AFolderThatRefusesTheBytesFailsTheUnpacking)
{
    QTemporaryDir dir;
    const QString packed = dir.filePath("big.so.gz");
    gzFile out = gzopen(QFile::encodeName(packed), "wb");
    const QByteArray plain = patternBytes(1 << 20, 9);
    gzwrite(out, plain.constData(), unsigned(plain.size()));
    gzclose(out);
    dlModule record = emptyDlModule();
    setDlText(record.localPath, packed.toLocal8Bit());

    rlimit before{};
    ASSERT_EQ(0, ::getrlimit(RLIMIT_FSIZE, &before));
    rlimit limited = before;
    limited.rlim_cur = 64 * 1024;
    const auto previous = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &limited));
    const bool unpacked = unzipDownloadedModule(record, UnpackedRecorder());
    ::setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, previous);

    EXPECT_FALSE(unpacked);
    EXPECT_TRUE(QFile::exists(packed));
    EXPECT_EQ(packed.toLocal8Bit(), dlText(record.localPath));
    EXPECT_TRUE(discardPackedLeftover(record));
    EXPECT_FALSE(QFile::exists(dir.filePath("big.so")));
}
