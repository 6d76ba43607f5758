// The reference host's parameter store: its XML files. Its answers to the
// records the module sends, and what the module writes and reads back
// through it, are in XMLWorkDataTest.cpp and SaveParamDownloadTest.cpp.
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "StorageFiles.h"

namespace {

class ParameterStoreTest : public ::testing::Test {
protected:
    QString path() const { return dir.filePath(QStringLiteral("download.rdd")); }

    QTemporaryDir dir;
    ParameterStore store;
};

}  // namespace

TEST_F(ParameterStoreTest, SavingReplacesTheFileByRenameAndAlwaysReleasesTheHandle)
{
    const QByteArray handWritten = readFile(dataFile("rdd-written-by-hand.rdd"));
    writeText(path(), handWritten);
    QFile old(path());
    ASSERT_TRUE(old.open(QIODevice::ReadOnly));  // holds the old file's inode
    void* file = store.load(path());
    ASSERT_NE(file, nullptr);
    store.tree(file)->clear(store.tree(file)->top());
    ASSERT_EQ(store.save(file), 0);
    // Whoever still has the old file open reads it whole; the path has the new one.
    EXPECT_EQ(old.readAll(), handWritten);
    EXPECT_EQ(readFile(path()), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<parameters format=\"1\"/>\n");
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{"download.rdd"});

    file = store.load(dir.filePath(QStringLiteral("gone/download.rdd")));
    EXPECT_EQ(store.save(file), 1);
    EXPECT_FALSE(store.errorString().isEmpty());
    EXPECT_EQ(store.openFileCount(), 0);
}

// Damaged files give no handle; files with tolerable oddities read like the
// clean one; nesting stops at the limit.
TEST_F(ParameterStoreTest, DamagedTolerableLongAndDeepFiles)
{
    ParameterStore clean;
    const QByteArray reference = clean.tree(clean.load(dataFile("rdd-written-by-hand.rdd")))->write();
    const std::pair<const char*, bool> files[] = {
        {"xml-truncated.rdd", false}, {"xml-binary-garbage.rdd", false}, {"xml-nul-byte.rdd", false},
        {"xml-wrong-root-element.rdd", false}, {"xml-odd-length-base64-value.rdd", false},
        {"xml-empty-file.rdd", false}, {"xml-cr-only-line-ends.rdd", true},
        {"xml-no-final-line-break.rdd", true}, {"xml-unknown-elements-and-attributes.rdd", true}};
    for (const auto& [name, readable] : files) {
        ParameterStore each;
        void* file = each.load(dataFile(name));
        EXPECT_EQ(file != nullptr, readable) << name;
        EXPECT_EQ(each.errorString().isEmpty(), readable) << name;
        EXPECT_EQ(each.openFileCount(), readable ? 1 : 0) << name;
        if (file) {
            EXPECT_EQ(each.tree(file)->write(), reference) << name;
        }
    }

    for (const auto& [depth, loads] : {std::pair<int, bool>{ParameterTree::kMaxDepth, true},
                                       {ParameterTree::kMaxDepth + 1, false}, {100000, false}}) {
        writeText(path(), "<parameters>" + QByteArray("<node name=\"d\">").repeated(depth)
                              + QByteArray("</node>").repeated(depth) + "</parameters>");
        EXPECT_EQ(store.load(path()) != nullptr, loads) << depth;
    }
}
