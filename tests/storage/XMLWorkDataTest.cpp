// The module's working copy of a host-held node, through a test host that
// answers with the reference host's store.
#include <cstring>
#include <memory>
#include <vector>

#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "StoreTestHost.h"
#include "protocol/HostMessages.h"
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
    void* file = host.load(dir.filePath(QStringLiteral("params.rdd")));
};

}  // namespace

TEST_F(XMLWorkDataTest, ValuesAreTextWithTheReadersRules)
{
    auto root = open("Root");
    root->writeInteger("five", 5);
    root->writeString("x", "x");
    root->writeBool("yes", true);
    root->writeString("letters", QStringLiteral("abcdef"));
    root->writeInt64("big", 1234567890123LL);
    root->writeDouble("double", 2.5, 3);
    root->writeFloat("float", 1.234f, 1);
    root->writeString("wide", u"w\u00e9de");
    root->writeParameters();

    auto again = open("Root");
    EXPECT_EQ(again->readInteger("five", 9), 5);
    EXPECT_EQ(again->readInteger("x", 9), 0);  // present but not a number: 0, not the default
    EXPECT_EQ(again->readInteger("absent", 9), 9);
    EXPECT_TRUE(again->readBool("yes", false));
    EXPECT_FALSE(again->readBool("x", true));
    EXPECT_TRUE(again->readBool("absent", true));
    ASSERT_NE(again->FindAttr("yes"), nullptr);
    EXPECT_EQ(again->FindAttr("yes")->value, QStringLiteral("1"));
    EXPECT_EQ(again->FindAttr("YES"), nullptr);  // keys are case-sensitive here
    EXPECT_EQ(again->readInt64("big", 0), 1234567890123LL);
    EXPECT_EQ(again->FindAttr("double")->value, QStringLiteral("2.500"));
    EXPECT_DOUBLE_EQ(again->readDouble("double", 0), 2.5);
    EXPECT_FLOAT_EQ(again->readFloat("float", 0), 1.2f);  // written with one decimal
    EXPECT_EQ(again->readDouble("wide", 7.0), 0.0);

    char buffer[8];
    std::memset(buffer, '#', sizeof buffer);
    again->readString("letters", "", buffer, 4);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(buffer[4], '#');
    again->readString("absent", "default text", buffer, 5);
    EXPECT_STREQ(buffer, "defa");
    QString text;
    again->readString("absent", QStringLiteral("fallback"), text);
    EXPECT_EQ(text, QStringLiteral("fallback"));
    again->readString("letters", QStringLiteral("fallback"), text);
    EXPECT_EQ(text, QStringLiteral("abcdef"));
    char16_t wide[4];
    again->readString("wide", u"", wide, 4);
    EXPECT_EQ(QString::fromUtf16(wide), QString::fromUtf16(u"w\u00e9d"));
}

// Written in reverse key order, one key twice: the host gets one entry per
// key, in key order, each value exactly.
TEST_F(XMLWorkDataTest, ValuesReachTheHostExactlyInKeyOrder)
{
    const std::vector<QString> values = {
        QString(), QStringLiteral("  spaces  "), QStringLiteral("<>&\"'"), QString::fromUtf8("Обновление € 𝄞"),
        QString(10000, QChar('z')), QString(254, QChar('i')), QString(255, QChar('j')),
        QStringLiteral("line\r\nbreak\ttab")};
    auto root = open("Root");
    root->writeString("3", "replaced");
    for (std::size_t i = values.size(); i-- > 0;)
        root->writeString(QByteArray::number(int(i)).constData(), values[i]);
    root->writeParameters();

    const ParameterNode* node = hostNode(*root);
    ASSERT_NE(node, nullptr);
    ASSERT_EQ(node->parameters.size(), values.size());
    auto again = open("Root");
    for (std::size_t i = 0; i < values.size(); ++i) {
        EXPECT_EQ(node->parameters[i], std::make_pair(QString::number(i), values[i])) << i;
        QString read;
        again->readString(QByteArray::number(int(i)).constData(), QStringLiteral("?"), read);
        EXPECT_EQ(read, values[i]) << i;
    }
}

TEST_F(XMLWorkDataTest, IteratesOverChildrenOfOneName)
{
    {
        auto root = open("Root");
        int index = 0;
        for (const char* name : {"Module", "Other", "Module", "Modules", "Module"}) {
            std::unique_ptr<CXMLWorkData> child(root->createNode(name, coreXmlOpenAppend));
            ASSERT_NE(child, nullptr);
            child->writeInteger("Index", index++);
            child->writeParameters();
        }
    }
    auto root = open("Root");
    ASSERT_EQ(root->getChildren().size(), 5u);
    std::vector<int> seen;
    for (std::unique_ptr<CXMLWorkData> child(root->getFirstNode("Module")); child;
         child.reset(root->getNextNode()))
        seen.push_back(child->readInteger("Index", -1));
    EXPECT_EQ(seen, (std::vector<int>{0, 2, 4}));
    EXPECT_EQ(root->getNextNode(), nullptr);
    EXPECT_EQ(root->getFirstNode("Missing"), nullptr);
    std::unique_ptr<CXMLWorkData> other(root->getFirstNode("Other"));
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(other->readInteger("Index", -1), 1);
}

// Mode 0 opens the first child of the name (made when missing), mode 1
// always makes a new one.
TEST_F(XMLWorkDataTest, CreateNodeModes)
{
    auto root = open("Root");
    std::unique_ptr<CXMLWorkData> first(root->createNode("Child", coreXmlOpenExisting));
    std::unique_ptr<CXMLWorkData> appended(root->createNode("Child", coreXmlOpenAppend));
    std::unique_ptr<CXMLWorkData> again(root->createNode("Child", coreXmlOpenExisting));
    ASSERT_TRUE(first && appended && again);
    EXPECT_NE(first->getNodeHandle(), appended->getNodeHandle());
    EXPECT_EQ(again->getNodeHandle(), first->getNodeHandle());
    EXPECT_EQ(hostNode(*root)->children.size(), 2u);
    EXPECT_EQ(open("Root")->getNodeHandle(), root->getNodeHandle());
    EXPECT_EQ(root->getCountParamsInTag(), 2);
}

TEST_F(XMLWorkDataTest, ClearNodeThenWriteLeavesTheNodeEmptyInTheHost)
{
    {
        auto root = open("Root");
        root->writeString("k", "v");
        root->writeParameters();
        delete root->createNode("Child", coreXmlOpenExisting);
    }
    auto root = open("Root");
    EXPECT_EQ(root->getParams().size(), 1u);
    EXPECT_EQ(root->getChildren().size(), 1u);
    root->clearNode();
    EXPECT_TRUE(root->getParams().empty() && root->getChildren().empty());
    EXPECT_EQ(root->getFirstNode("Child"), nullptr);
    root->writeParameters();
    EXPECT_EQ(root->getCountParamsInTag(), 0);
    EXPECT_TRUE(hostNode(*root)->parameters.empty() && hostNode(*root)->children.empty());
    // With nothing to send, 3168 goes without items.
    ASSERT_FALSE(host.withCode(HostMsg::WriteNodeItems).empty());
    EXPECT_EQ(host.withCode(HostMsg::WriteNodeItems).back().param2, 0);
}

TEST_F(XMLWorkDataTest, OpensThenReadsWithCountLengthsThenItems)
{
    auto root = open("Root");
    root->writeString("k", "v");
    root->writeParameters();
    host.messages.clear();
    open("Root");
    EXPECT_EQ(host.codes(), (std::vector<unsigned int>{HostMsg::OpenNode, HostMsg::NodeItemCount,
                                                        HostMsg::NodeItemLengths, HostMsg::ReadNodeItems}));
    for (const RecordedMessage& message : host.messages)
        EXPECT_EQ(message.target, &host);
}

TEST_F(XMLWorkDataTest, ColoursAndFonts)
{
    auto root = open("Root");
    const QColor colour = QColor::fromRgba(qRgba(10, 20, 30, 200));
    root->writeColor("colour", colour);
    QFont font(QStringLiteral("Serif Family"), 13, QFont::Bold, true);
    font.setUnderline(true);
    root->writeFont("font", font);
    root->writeParameters();

    auto again = open("Root");
    EXPECT_EQ(again->FindAttr("colour")->value, QString::number(int(colour.rgba())));
    EXPECT_EQ(again->readColor("colour", Qt::red).rgba(), colour.rgba());
    EXPECT_EQ(again->readColor("absent", Qt::red), QColor(Qt::red));
    const QFont read = again->readFont("font", QFont());
    EXPECT_EQ(read.family(), QStringLiteral("Serif Family"));
    EXPECT_EQ(read.pointSize(), 13);
    EXPECT_EQ(read.weight(), QFont::Bold);
    EXPECT_TRUE(read.italic() && read.underline() && !read.strikeOut());
    const QFont fallback(QStringLiteral("Fallback"), 7);
    EXPECT_EQ(again->readFont("nofont", fallback), fallback);
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

TEST(XMLWorkDataHugeCount, CountsPastTheRecordLimitAreNotAllocated)
{
    TestHost host;
    host.extraHandler = [](unsigned int code, intptr_t, intptr_t param2) {
        if (code == HostMsg::NodeItemCount)
            *reinterpret_cast<int32_t*>(param2) = kCoreSzMaxItems + 1;
        return 0;
    };
    host.messages.clear();
    CXMLWorkData node(&host, reinterpret_cast<void*>(intptr_t(1)), reinterpret_cast<void*>(intptr_t(5)),
                      &TestHost::send);
    EXPECT_EQ(host.codes(), std::vector<unsigned int>{HostMsg::NodeItemCount});
    EXPECT_TRUE(node.getParams().empty());
}

TEST(XMLWorkDataRecords, NamesAreBoundedAndValuesTravelInSeparateArrays)
{
    TestHost host;
    QByteArray openedName;
    std::vector<int32_t> inlineFlags;
    host.extraHandler = [&](unsigned int code, intptr_t param1, intptr_t param2) {
        if (code == HostMsg::OpenNode) {
            auto* open = reinterpret_cast<coreXmlOpenNode*>(param1);
            openedName = QByteArray(open->name, sizeof open->name);
            open->child = 42;
        } else if (code == HostMsg::WriteNodeItems && param2) {
            const auto* items = reinterpret_cast<const coreSzNode*>(param2);
            for (int i = 0; i < items->count; ++i) {
                inlineFlags.push_back(int32_t(items->items[i].inlineValue));
                EXPECT_EQ(int32_t(items->items[i].node), 42);
            }
        }
        return 0;
    };
    CXMLWorkData root(&host, reinterpret_cast<void*>(intptr_t(1)), QByteArray(300, 'n').constData(),
                      &TestHost::send);
    EXPECT_EQ(openedName, QByteArray(255, 'n'));  // cut at 255 bytes, no room for a NUL
    root.writeString("a", "short");
    root.writeString("b", QString(300, QChar('v')));
    root.writeParameters();
    // Even a short value goes by pointer; the values' text is checked
    // through the real store in ValuesReachTheHostExactlyInKeyOrder.
    EXPECT_EQ(inlineFlags, (std::vector<int32_t>{0, 0}));
}
