// A host may answer a node's items (3167) with a value held in the record
// itself (inlineValue set) instead of in the array the module gave it; the
// reference store never does, so this host does it by hand, beside a value
// written the usual way.
#include <cstring>

#include <gtest/gtest.h>

#include "protocol/HostMessages.h"
#include "protocol/StorageRecords.h"
#include "storage/XMLWorkData.h"
#include "support/TestHost.h"

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
