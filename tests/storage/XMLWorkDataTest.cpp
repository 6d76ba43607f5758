// The module's working copy of a host-held node, through a test host that
// answers with the reference host's store.
#include <cstring>
#include <memory>
#include <vector>

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "StorageFiles.h"
#include "protocol/HostMessages.h"
#include "protocol/StorageRecords.h"
#include "storage/XMLWorkData.h"

namespace {

class XMLWorkDataTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NE(file, nullptr); }

    std::unique_ptr<CXMLWorkData> open(const char* name)
    {
        return std::make_unique<CXMLWorkData>(&host, file, name, &TestHost::send);
    }

    // The host's own view of a node.
    const ParameterNode* hostNode(const CXMLWorkData& xml)
    {
        return host.store.tree(file)->node(xml.getNodeHandle());
    }

    QTemporaryDir dir;
    StoreTestHost host;
    void* file = host.store.load(dir.filePath(QStringLiteral("params.rdd")));  // as 3163 hands it
};

}  // namespace

// Every value is text in the host: integers in decimal, booleans "0"/"1".
// A present value that is not a number reads as 0, not as the default; keys
// are case-sensitive; string reads are cut to the caller's buffer.
TEST_F(XMLWorkDataTest, ValuesAreTextWithTheReadersRules)
{
    auto root = open("Root");
    root->writeInteger("five", -5);
    root->writeString("x", "x");
    root->writeBool("yes", true);
    root->writeString("letters", QStringLiteral("abcdef"));
    root->writeParameters();
    const std::vector<std::pair<QString, QString>> texts = {
        {"five", "-5"}, {"letters", "abcdef"}, {"x", "x"}, {"yes", "1"}};
    EXPECT_EQ(hostNode(*root)->parameters, texts);

    auto again = open("Root");
    EXPECT_EQ((std::vector<int>{again->readInteger("five", 9), again->readInteger("x", 9),
                                again->readInteger("absent", 9), again->readInteger("FIVE", 9)}),
              (std::vector<int>{-5, 0, 9, 9}));
    EXPECT_EQ((std::vector<bool>{again->readBool("yes", false), again->readBool("x", true),
                                 again->readBool("absent", true)}), (std::vector<bool>{true, false, true}));
    char buffer[] = "#######";
    again->readString("letters", "", buffer, 4);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(buffer[4], '#');
    again->readString("absent", "default text", buffer, 5);
    EXPECT_STREQ(buffer, "defa");
    QString text;
    again->readString("absent", QStringLiteral("fallback"), text);
    EXPECT_EQ(text, QStringLiteral("fallback"));
}

// Written in reverse key order, one key twice: the host gets one entry per
// key, in key order, each value exactly, and so does the module reading the
// saved file again, whatever XML 1.0 cannot carry as it is.
TEST_F(XMLWorkDataTest, ValuesReachTheHostAndTheFileExactlyInKeyOrder)
{
    const std::vector<QString> values = {
        QString(), QStringLiteral("  spaces  "), QStringLiteral("<>&\"' &amp; ]]> <!-- -->"),
        QString::fromUtf8("Обновление € 𝄞 日本"), QString(10000, QChar('z')), QString(254, QChar('i')),
        QString(255, QChar('j')), QStringLiteral("line\r\nbreak\ttab\rcr"),
        QStringLiteral("control") + QChar(1) + QChar(0x1f),
        QStringLiteral("lone ") + QChar(0xD800) + QStringLiteral(" surrogate ") + QChar(0xDC00),
        QStringLiteral("not a character ") + QChar(0xFFFF) + QChar(0xFFFE)};
    auto key = [](std::size_t i) { return QByteArray(1, char('a' + i)); };
    auto root = open("Root");
    root->writeString("d", "replaced");
    for (std::size_t i = values.size(); i-- > 0;)
        root->writeString(key(i).constData(), values[i]);
    root->writeParameters();
    std::vector<std::pair<QString, QString>> expected;
    for (std::size_t i = 0; i < values.size(); ++i)
        expected.emplace_back(QString::fromLatin1(key(i)), values[i]);
    EXPECT_EQ(hostNode(*root)->parameters, expected);

    ASSERT_EQ(host.store.save(file), 0);
    file = host.store.load(dir.filePath(QStringLiteral("params.rdd")));
    auto again = open("Root");
    for (std::size_t i = 0; i < values.size(); ++i) {
        QString read;
        again->readString(key(i).constData(), QStringLiteral("?"), read);
        EXPECT_EQ(read, values[i]) << i;
    }
}

// Mode 0 opens the first child of the name (made when missing), mode 1
// always makes a new one; iteration visits the children of one name only.
TEST_F(XMLWorkDataTest, CreatesAndIteratesOverChildrenOfOneName)
{
    auto root = open("Root");
    int index = 0;
    for (const char* name : {"Module", "Other", "Module", "Modules", "Module"}) {
        std::unique_ptr<CXMLWorkData> child(root->createNode(name, coreXmlOpenAppend));
        ASSERT_NE(child, nullptr);
        child->writeInteger("Index", index++);
        child->writeParameters();
    }
    std::unique_ptr<CXMLWorkData> existing(root->createNode("Module", coreXmlOpenExisting));
    EXPECT_EQ(existing->readInteger("Index", -1), 0);
    EXPECT_EQ(hostNode(*root)->children.size(), 5u);

    host.messages.clear();
    root = open("Root");
    // Read as count, lengths, then items, all sent to the host's object.
    EXPECT_EQ(host.codes(), (std::vector<unsigned int>{HostMsg::OpenNode, HostMsg::NodeItemCount,
                                                        HostMsg::NodeItemLengths, HostMsg::ReadNodeItems}));
    EXPECT_EQ(host.messages.back().target, &host);
    std::vector<int> seen;
    for (std::unique_ptr<CXMLWorkData> child(root->getFirstNode("Module")); child; child.reset(root->getNextNode()))
        seen.push_back(child->readInteger("Index", -1));
    EXPECT_EQ(seen, (std::vector<int>{0, 2, 4}));
    EXPECT_EQ(root->getNextNode(), nullptr);
    EXPECT_EQ(root->getFirstNode("Missing"), nullptr);
}

// Without a callback nothing is sent; through a host that gives the node no
// handle only the open is. Readers return their defaults either way, and the
// unopened node is not read, written or cleared in the host's top level.
TEST(XMLWorkDataWithoutNode, NothingIsReadWrittenOrCleared)
{
    for (const bool withCallback : {false, true}) {
        TestHost host;
        host.extraHandler = [](unsigned int, intptr_t, intptr_t) { return 1; };  // leaves child at 0
        host.messages.clear();
        CXMLWorkData xml(&host, reinterpret_cast<void*>(intptr_t(1)), "Root",
                         withCallback ? &TestHost::send : nullptr);
        EXPECT_EQ(xml.readInteger("k", 4), 4);
        EXPECT_EQ(xml.createNode("c", 0), nullptr);
        xml.writeInteger("k", 1);
        EXPECT_EQ(xml.writeParameters(), 0);
        xml.clearNode();
        EXPECT_EQ(xml.getCountParamsInTag(), 0);
        EXPECT_EQ(host.codes(), withCallback ? std::vector<unsigned int>{HostMsg::OpenNode}
                                             : std::vector<unsigned int>{});
    }
}

// A count past the record limit is not read; names are cut to their field;
// values go by pointer, even short ones (their text is checked through the
// real store above).
TEST(XMLWorkDataRecords, HugeCountsLongNamesAndValuesInSeparateArrays)
{
    TestHost host;
    QByteArray openedName;
    std::vector<int32_t> inlineFlags;
    host.extraHandler = [&](unsigned int code, intptr_t param1, intptr_t param2) {
        auto* open = reinterpret_cast<coreXmlOpenNode*>(param1);
        const auto* items = reinterpret_cast<const coreSzNode*>(param2);
        if (code == HostMsg::OpenNode)
            openedName = QByteArray(open->name, sizeof open->name), open->child = 42;
        if (code == HostMsg::NodeItemCount)
            *reinterpret_cast<int32_t*>(param2) = kCoreSzMaxItems + 1;
        for (int i = 0; code == HostMsg::WriteNodeItems && items && i < items->count; ++i) {
            inlineFlags.push_back(int32_t(items->items[i].inlineValue));
            EXPECT_EQ(int32_t(items->items[i].node), 42);
        }
        return 0;
    };
    CXMLWorkData root(&host, reinterpret_cast<void*>(intptr_t(1)), QByteArray(300, 'n').constData(),
                      &TestHost::send);
    EXPECT_EQ(openedName, QByteArray(255, 'n'));  // no room for a NUL
    EXPECT_EQ(host.codes(), (std::vector<unsigned int>{HostMsg::OpenNode, HostMsg::NodeItemCount}));
    root.writeString("a", "short");
    root.writeString("b", QString(300, QChar('v')));
    root.writeParameters();
    EXPECT_EQ(inlineFlags, (std::vector<int32_t>{0, 0}));
}

// A host may answer a node's items (3167) with a value held in the record
// itself (inlineValue set) instead of in the array the module gave it; the
// reference store never does, so this host does it by hand, beside a value
// written the usual way.
TEST(XMLWorkDataRecords, AValueTheHostReturnsInlineIsReadFromTheRecord)
{
    TestHost host;
    const std::u16string inlineText = u"inline \u00e9", pointerText = u"by pointer";
    host.extraHandler = [&](unsigned int code, intptr_t, intptr_t param2) {
        if (code == HostMsg::NodeItemCount) {
            *reinterpret_cast<int32_t*>(param2) = 2;
        } else if (code == HostMsg::NodeItemLengths) {
            auto* lengths = reinterpret_cast<coreSzLengths*>(param2);
            lengths->lengths[0] = 1;  // the inline one needs no array
            lengths->lengths[1] = int32_t(pointerText.size() + 1);
        } else if (code == HostMsg::ReadNodeItems) {
            auto* node = reinterpret_cast<coreSzNode*>(param2);
            coreSzItem& inlined = node->items[0];
            std::strcpy(inlined.name, "a");
            std::memset(inlined.value.text, 0x41, sizeof inlined.value.text);  // no NUL past the text
            std::memcpy(inlined.value.text, inlineText.c_str(), sizeof(char16_t) * (inlineText.size() + 1));
            inlined.inlineValue = 1;
            coreSzItem& pointed = node->items[1];
            std::strcpy(pointed.name, "b");
            std::memcpy(pointed.value.pointer, pointerText.c_str(), sizeof(char16_t) * (pointerText.size() + 1));
        }
        return 0;
    };
    CXMLWorkData root(&host, reinterpret_cast<void*>(intptr_t(1)), reinterpret_cast<void*>(intptr_t(7)),
                      &TestHost::send);
    QString a, b;
    root.readString("a", QString(), a);
    root.readString("b", QString(), b);
    EXPECT_EQ(QString::fromStdU16String(inlineText), a);
    EXPECT_EQ(QString::fromStdU16String(pointerText), b);
}
