// The reference host's parameter store: its XML files and its answers to the
// parameter-file codes, driven with the records the module sends.
#include <cstring>
#include <vector>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "StorageFiles.h"
#include "host/store/ParameterStore.h"
#include "protocol/HostMessages.h"
#include "protocol/StorageRecords.h"
#include "storage/RecordText.h"

namespace {

// Texts XML 1.0 can and cannot carry as they are.
const QString kTexts[] = {
    QString(),
    QStringLiteral("  leading and trailing  "),
    QStringLiteral("<>&\"' and &amp; as text"),
    QString::fromUtf8("Загрузка € 𝄞 日本"),
    QString(10000, QChar('x')) + QStringLiteral("end"),
    QStringLiteral("tab\there\nnewline\r\ncr lf\rcr"),
    QStringLiteral("control") + QChar(1) + QChar(0x1f) + QStringLiteral("chars"),
    QStringLiteral("lone ") + QChar(0xD800) + QStringLiteral(" surrogate ") + QChar(0xDC00),
    QStringLiteral("not a character ") + QChar(0xFFFF) + QChar(0xFFFE),
    QStringLiteral("]]> <!-- -->"),
};
constexpr int kTextCount = int(sizeof kTexts / sizeof kTexts[0]);

class ParameterStoreTest : public ::testing::Test {
protected:
    QString path() const { return dir.filePath(QStringLiteral("download.rdd")); }

    int send(unsigned int code, const void* param1, const void* param2 = nullptr)
    {
        return store.handleMessage(code, reinterpret_cast<intptr_t>(param1),
                                   reinterpret_cast<intptr_t>(param2));
    }

    // 3166 as the module sends it; the child's handle, 0 when refused.
    int32_t openChild(void* file, int32_t parent, const char* name, int mode)
    {
        coreXmlOpenNode open;
        std::memset(&open, 0, sizeof open);
        open.data = file;
        open.node = parent;
        copyToField(open.name, QByteArray(name));
        open.mode = mode;
        open.child = -5;
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

TEST_F(ParameterStoreTest, EveryTextRoundTripsThroughTheFile)
{
    void* file = store.load(path());
    ASSERT_NE(file, nullptr);
    ParameterTree* tree = store.tree(file);
    ParameterNode* node = tree->addChild(tree->top(), QStringLiteral("Values"));
    for (int i = 0; i < kTextCount; ++i) {
        node->parameters.emplace_back(QStringLiteral("key %1 ").arg(i) + kTexts[i], kTexts[i]);
        tree->addChild(node, kTexts[i])->value = kTexts[kTextCount - 1 - i];
    }
    node->parameters.emplace_back(QStringLiteral("duplicate"), QStringLiteral("first"));
    node->parameters.emplace_back(QStringLiteral("duplicate"), QStringLiteral("second"));
    const auto written = node->parameters;  // the tree goes away with the save
    ASSERT_EQ(store.save(file), 0) << store.errorString().toStdString();

    ParameterStore reloaded;
    void* again = reloaded.load(path());
    ASSERT_NE(again, nullptr) << reloaded.errorString().toStdString();
    const ParameterNode* top = reloaded.tree(again)->top();
    ASSERT_EQ(top->children.size(), 1u);
    const ParameterNode& values = *top->children[0];
    EXPECT_EQ(values.name, QStringLiteral("Values"));
    EXPECT_EQ(values.parameters, written);
    ASSERT_EQ(values.children.size(), std::size_t(kTextCount));
    for (int i = 0; i < kTextCount; ++i) {
        EXPECT_EQ(values.children[std::size_t(i)]->name, kTexts[i]) << "child " << i;
        EXPECT_EQ(values.children[std::size_t(i)]->value, kTexts[kTextCount - 1 - i]) << "child " << i;
    }
}

TEST_F(ParameterStoreTest, TheFileIsReadableXmlWithNamesAndValues)
{
    void* file = store.load(path());
    ParameterNode* node = store.tree(file)->addChild(store.tree(file)->top(), QStringLiteral("N"));
    node->parameters.emplace_back(QStringLiteral("plain"), QStringLiteral(" <a & b> "));
    node->parameters.emplace_back(QStringLiteral("control"), QStringLiteral("x") + QChar(1));
    ASSERT_EQ(store.save(file), 0);
    const QByteArray xml = fileBytes(path());
    EXPECT_TRUE(xml.contains("<param name=\"plain\" value=\" &lt;a &amp; b&gt; \"/>")) << xml.constData();
    // "x\x01" as UTF-16LE bytes 78 00 01 00, in base64.
    EXPECT_TRUE(xml.contains("<param name=\"control\" valueUtf16=\"eAABAA==\"/>")) << xml.constData();
}

TEST_F(ParameterStoreTest, SavingReplacesTheFileByRenameNotInPlace)
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
}

TEST_F(ParameterStoreTest, ASaveIntoAMissingFolderFailsAndReleasesTheHandle)
{
    void* file = store.load(dir.filePath(QStringLiteral("gone/download.rdd")));
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(store.save(file), 1);
    EXPECT_FALSE(store.errorString().isEmpty());
    EXPECT_EQ(store.openFileCount(), 0);
}

// The module sizes its records from the lengths it asked for; a value that
// has grown since must still stay inside the room it gave.
TEST_F(ParameterStoreTest, ValuesAreCutToTheRoomTheModuleGave)
{
    void* file = store.load(path());
    const int32_t node = openChild(file, 0, "N", coreXmlOpenExisting);
    auto& parameters = store.tree(file)->node(node)->parameters;
    parameters.emplace_back(QStringLiteral("k"), QStringLiteral("abcdef"));
    coreXmlNodeId id = nodeId(file, node);

    // Lengths count the NUL; slots past the last item are zero.
    std::vector<int32_t> lengths(2, -9);
    coreSzLengths lengthRecord{2, lengths.data()};
    ASSERT_EQ(send(HostMsg::NodeItemLengths, &id, &lengthRecord), 0);
    EXPECT_EQ(lengths, (std::vector<int32_t>{7, 0}));

    coreSzItem item;
    std::memset(&item, 0, sizeof item);
    char16_t room[] = {u'#', u'#', u'#', u'#', u'!'};  // the last must stay untouched
    char16_t* pointer = room;
    std::memcpy(reinterpret_cast<char*>(&item) + offsetof(coreSzItem, value), &pointer, sizeof pointer);
    item.length = 4;
    coreSzNode itemRecord{1, &item};
    ASSERT_EQ(send(HostMsg::ReadNodeItems, &id, &itemRecord), 0);
    EXPECT_EQ(QString::fromUtf16(room), QStringLiteral("abc"));
    EXPECT_EQ(room[4], u'!');

    // The inline form holds up to 254 units and a NUL, both ways.
    coreSzItem inlineItem;
    std::memset(&inlineItem, 0, sizeof inlineItem);
    inlineItem.inlineValue = 1;
    inlineItem.length = kCoreSzInlineUnits;
    parameters[0].second = QString(300, QChar('y'));
    itemRecord.items = &inlineItem;
    ASSERT_EQ(send(HostMsg::ReadNodeItems, &id, &itemRecord), 0);
    char16_t inlineText[kCoreSzInlineUnits];
    std::memcpy(inlineText, reinterpret_cast<const char*>(&inlineItem) + offsetof(coreSzItem, value),
                sizeof inlineText);
    EXPECT_EQ(QString::fromUtf16(inlineText, 254), QString(254, QChar('y')));
    EXPECT_EQ(inlineText[254], 0);

    inlineItem.kind = coreSzParameter;
    ASSERT_EQ(send(HostMsg::WriteNodeItems, &id, &itemRecord), 0);
    ASSERT_EQ(parameters.size(), 1u);
    EXPECT_EQ(parameters[0].second, QString(254, QChar('y')));
}

// Open modes as the module uses them are tested through CXMLWorkData; here
// the records no module sends.
TEST_F(ParameterStoreTest, UnknownHandlesModesAndMissingRecordsAreRefused)
{
    void* file = store.load(path());
    const int32_t node = openChild(file, 0, "N", coreXmlOpenExisting);
    const int32_t child = openChild(file, node, "M", coreXmlOpenAppend);
    EXPECT_EQ(openChild(file, node, "M", 7), 0);
    EXPECT_EQ(openChild(file, 999, "M", coreXmlOpenExisting), 0);
    EXPECT_EQ(openChild(reinterpret_cast<void*>(intptr_t(77)), 0, "M", 0), 0);
    const int32_t grandchild = openChild(file, child, "G", coreXmlOpenExisting);
    ASSERT_GT(grandchild, 0);

    coreXmlNodeId id = nodeId(file, node);
    ASSERT_EQ(send(HostMsg::ClearNode, &id), 0);
    int32_t count = -1;
    EXPECT_EQ(send(HostMsg::NodeItemCount, &id, &count), 0);
    EXPECT_EQ(count, 0);
    // The cleared children's handles, to any depth, no longer name a node.
    coreXmlNodeId gone = nodeId(file, grandchild);
    EXPECT_EQ(send(HostMsg::NodeItemCount, &gone, &count), 1);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(send(HostMsg::ClearNode, &gone), 1);
    EXPECT_EQ(send(HostMsg::WriteNodeItems, &gone), 1);
    EXPECT_EQ(send(HostMsg::ClearNode, nullptr), 1);
    EXPECT_EQ(send(HostMsg::NodeItemCount, &id), 1);
    EXPECT_EQ(send(HostMsg::ReadNodeItems, &id), 1);
    EXPECT_EQ(send(HostMsg::OpenNode, nullptr), 1);
    EXPECT_EQ(send(HostMsg::LoadParameterFile, nullptr), 1);
    EXPECT_EQ(send(3999, nullptr), -1);
    coreSzNode negative{-1, nullptr};
    EXPECT_EQ(send(HostMsg::WriteNodeItems, &id, &negative), 1);
}

// Damaged files give no handle; files with tolerable oddities read like the
// clean one.
TEST(ParameterFiles, DamagedAreRefusedAndTolerableReadLikeTheCleanFile)
{
    ParameterStore clean;
    const QByteArray reference = clean.tree(clean.load(dataFile("rdd-written-by-hand.rdd")))->write();
    const std::pair<const char*, bool> files[] = {
        {"xml-truncated.rdd", false}, {"xml-binary-garbage.rdd", false}, {"xml-nul-byte.rdd", false},
        {"xml-wrong-root-element.rdd", false}, {"xml-odd-length-base64-value.rdd", false},
        {"xml-empty-file.rdd", false}, {"xml-cr-only-line-ends.rdd", true},
        {"xml-no-final-line-break.rdd", true}, {"xml-unknown-elements-and-attributes.rdd", true}};
    for (const auto& [name, readable] : files) {
        ParameterStore store;
        void* file = store.load(dataFile(name));
        EXPECT_EQ(file != nullptr, readable) << name;
        EXPECT_EQ(store.errorString().isEmpty(), readable) << name;
        EXPECT_EQ(store.openFileCount(), readable ? 1 : 0) << name;
        if (file) {
            EXPECT_EQ(store.tree(file)->write(), reference) << name;
        }
    }
}

TEST_F(ParameterStoreTest, EveryTruncationOfAFileIsRefusedOrReadWithoutHarm)
{
    const QByteArray whole = fileBytes(dataFile("rdd-written-by-hand.rdd"));
    int loaded = 0;
    for (int length = 0; length < whole.size(); ++length) {
        writeFile(path(), whole.left(length));
        if (void* file = store.load(path())) {
            ++loaded;
            store.save(file);
        }
    }
    // Only cutting the final line break leaves a well-formed file.
    EXPECT_EQ(loaded, 1);
}

TEST_F(ParameterStoreTest, AMegabyteLineAndNestingUpToTheLimit)
{
    const QByteArray big(1 << 20, 'v');
    writeFile(path(), "<parameters><node name=\"n\"><param name=\"k\" value=\"" + big
                          + "\"/></node></parameters>");
    void* file = store.load(path());
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(store.tree(file)->top()->children[0]->parameters[0].second.size(), big.size());

    auto nested = [](int depth) {
        return "<parameters>" + QByteArray("<node name=\"d\">").repeated(depth)
               + QByteArray("</node>").repeated(depth) + "</parameters>";
    };
    const std::pair<int, bool> depths[] = {
        {ParameterTree::kMaxDepth, true}, {ParameterTree::kMaxDepth + 1, false}, {100000, false}};
    for (const auto& [depth, loads] : depths) {
        writeFile(path(), nested(depth));
        EXPECT_EQ(store.load(path()) != nullptr, loads) << depth;
    }
}
