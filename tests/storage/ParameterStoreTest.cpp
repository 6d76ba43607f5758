// The reference host's parameter store: its XML files and its answers to the
// records the module sends. What the module writes and reads back through it
// is in XMLWorkDataTest.cpp.
#include <cstring>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "StorageFiles.h"
#include "protocol/HostMessages.h"
#include "protocol/StorageRecords.h"
#include "storage/RecordText.h"

namespace {

class ParameterStoreTest : public ::testing::Test {
protected:
    QString path() const { return dir.filePath(QStringLiteral("download.rdd")); }

    int send(unsigned int code, const void* param1, const void* param2 = nullptr)
    {
        return store.handleMessage(code, reinterpret_cast<intptr_t>(param1), reinterpret_cast<intptr_t>(param2));
    }

    // 3166 as the module sends it; the child's handle, 0 when refused.
    int32_t openChild(void* file, int32_t parent, const char* name)
    {
        coreXmlOpenNode open;
        std::memset(&open, 0, sizeof open);
        open.data = file;
        open.node = parent;
        copyToField(open.name, QByteArray(name));
        open.mode = coreXmlOpenExisting;
        send(HostMsg::OpenNode, &open);
        return open.child;
    }

    static coreXmlNodeId nodeId(void* file, int32_t node)
    {
        coreXmlNodeId id;
        std::memset(&id, 0, sizeof id);
        id.data = file;
        id.node = node;
        return id;
    }

    QTemporaryDir dir;
    ParameterStore store;
};

}  // namespace

// Values XML carries as they are go in "value"; the others as their UTF-16LE
// bytes in base64.
TEST_F(ParameterStoreTest, TheFileIsReadableXmlWithNamesAndValues)
{
    void* file = store.load(path());
    ParameterNode* node = store.tree(file)->addChild(store.tree(file)->top(), QStringLiteral("N"));
    node->parameters.emplace_back(QStringLiteral("plain"), QStringLiteral(" <a & b> "));
    node->parameters.emplace_back(QStringLiteral("control"), QStringLiteral("x") + QChar(1));
    ASSERT_EQ(store.save(file), 0);
    const QByteArray xml = fileBytes(path());
    EXPECT_TRUE(xml.contains("<param name=\"plain\" value=\" &lt;a &amp; b&gt; \"/>")) << xml.constData();
    // "x\x01" as bytes 78 00 01 00.
    EXPECT_TRUE(xml.contains("<param name=\"control\" valueUtf16=\"eAABAA==\"/>")) << xml.constData();
}

TEST_F(ParameterStoreTest, SavingReplacesTheFileByRenameAndAlwaysReleasesTheHandle)
{
    const QByteArray handWritten = fileBytes(dataFile("rdd-written-by-hand.rdd"));
    writeFile(path(), handWritten);
    QFile old(path());
    ASSERT_TRUE(old.open(QIODevice::ReadOnly));  // holds the old file's inode
    void* file = store.load(path());
    ASSERT_NE(file, nullptr);
    store.tree(file)->clear(store.tree(file)->top());
    ASSERT_EQ(store.save(file), 0);
    // Whoever still has the old file open reads it whole; the path has the new one.
    EXPECT_EQ(old.readAll(), handWritten);
    EXPECT_EQ(fileBytes(path()), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<parameters format=\"1\"/>\n");
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{"download.rdd"});

    file = store.load(dir.filePath(QStringLiteral("gone/download.rdd")));
    EXPECT_EQ(store.save(file), 1);
    EXPECT_FALSE(store.errorString().isEmpty());
    EXPECT_EQ(store.openFileCount(), 0);
}

// Clearing a node drops its children's handles to any depth: they name no
// node any more. (That lengths count the NUL, which the module sizes its
// arrays by, every read through XMLWorkDataTest.cpp shows.)
TEST_F(ParameterStoreTest, ClearedHandlesDie)
{
    void* file = store.load(path());
    coreXmlNodeId id = nodeId(file, openChild(file, 0, "N"));
    coreXmlNodeId grandchild = nodeId(file, openChild(file, openChild(file, id.node, "M"), "G"));
    ASSERT_GT(grandchild.node, 0);
    ASSERT_EQ(send(HostMsg::ClearNode, &id), 0);
    int32_t count = -1;
    EXPECT_EQ(send(HostMsg::NodeItemCount, &id, &count), 0);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(send(HostMsg::NodeItemCount, &grandchild, &count), 1);
    EXPECT_EQ(send(HostMsg::ClearNode, &grandchild), 1);
}

// Damaged files give no handle; files with tolerable oddities read like the
// clean one. A megabyte value is read whole; nesting stops at the limit.
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

    const QByteArray big(1 << 20, 'v');
    writeFile(path(), "<parameters><node name=\"n\"><param name=\"k\" value=\"" + big + "\"/></node></parameters>");
    void* file = store.load(path());
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(store.tree(file)->top()->children[0]->parameters[0].second.size(), big.size());
    for (const auto& [depth, loads] : {std::pair<int, bool>{ParameterTree::kMaxDepth, true},
                                       {ParameterTree::kMaxDepth + 1, false}, {100000, false}}) {
        writeFile(path(), "<parameters>" + QByteArray("<node name=\"d\">").repeated(depth)
                              + QByteArray("</node>").repeated(depth) + "</parameters>");
        EXPECT_EQ(store.load(path()) != nullptr, loads) << depth;
    }
}
