// The records the library hands a host, read back byte by byte at the offsets
// an i386 host reads them at. The expected offsets are written out here, not
// taken from the structs, so that a struct whose layout drifted (a lost pack
// pragma, a field of another width) fails even when the struct and its
// static_asserts were changed together. Built for both word sizes; the run
// that matters is the i386 build (scripts/test-i386), where pointers are four
// bytes wide as in the host.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <QByteArray>
#include <QString>
#include <gtest/gtest.h>

#include "LoadedLibrary.h"
#include "protocol/InstallRecords.h"
#include "update/InstalledProducts.h"
#include "update/UpdaterProtocol.h"

namespace {

constexpr unsigned char kUntouched = 0xEE;

int32_t int32At(const unsigned char* bytes, std::size_t offset)
{
    // Little-endian by construction, whatever the test machine is.
    return int32_t(uint32_t(bytes[offset]) | uint32_t(bytes[offset + 1]) << 8 |
                   uint32_t(bytes[offset + 2]) << 16 | uint32_t(bytes[offset + 3]) << 24);
}

void putInt32(unsigned char* bytes, std::size_t offset, int32_t value)
{
    for (int i = 0; i < 4; ++i)
        bytes[offset + i] = static_cast<unsigned char>(uint32_t(value) >> (8 * i));
}

// The NUL-terminated text of a fixed field at offset; fails when the field
// has no NUL within its width.
std::string textAt(const unsigned char* bytes, std::size_t offset, std::size_t width)
{
    const void* end = std::memchr(bytes + offset, 0, width);
    EXPECT_NE(nullptr, end) << "field at " << offset << " is not terminated";
    if (!end)
        return {};
    return std::string(reinterpret_cast<const char*>(bytes + offset),
                       static_cast<const unsigned char*>(end) - (bytes + offset));
}

// The UTF-16LE text of a zero-filled path field of units code units.
QString utf16At(const unsigned char* bytes, std::size_t offset, std::size_t units)
{
    QString text;
    for (std::size_t i = 0; i < units; ++i) {
        const char16_t unit = char16_t(bytes[offset + 2 * i] | bytes[offset + 2 * i + 1] << 8);
        if (unit == 0)
            break;
        text.append(QChar(unit));
    }
    return text;
}

bool allZero(const unsigned char* bytes, std::size_t from, std::size_t to)
{
    for (std::size_t i = from; i < to; ++i)
        if (bytes[i] != 0)
            return false;
    return true;
}

void putText(unsigned char* bytes, std::size_t offset, const char* text)
{
    std::memcpy(bytes + offset, text, std::strlen(text) + 1);
}

void* pointerAt(const unsigned char* bytes, std::size_t offset)
{
    void* pointer = nullptr;
    std::memcpy(&pointer, bytes + offset, sizeof pointer);
    return pointer;
}

}  // namespace

TEST_F(LoadedLibrary, InfoRecordIsByteExactWhereTheHostReadsIt)
{
    auto getModuleInfo = symbol<GetModuleInfoFn>("GetModuleInfo");
    ASSERT_NE(nullptr, getModuleInfo);
    // The host's buffer is exactly 2315 bytes: the guard behind it catches a
    // record that grew, and anything inside it not written stays 0xEE.
    std::vector<unsigned char> buffer(2315 + 64, kUntouched);
    ASSERT_EQ(0, getModuleInfo(reinterpret_cast<MODULE_INFO*>(buffer.data())));
    const unsigned char* info = buffer.data();

    EXPECT_EQ("Velmora.Download module", textAt(info, 0, 255));
    EXPECT_TRUE(allZero(info, 23, 255));
    EXPECT_EQ("Update module", textAt(info, 255, 255));
    EXPECT_TRUE(allZero(info, 255 + 13, 1279));
    // The constructor's numbers 1, 2, 9 are stored in reverse order.
    EXPECT_EQ(9, int32At(info, 1279));
    EXPECT_EQ(2, int32At(info, 1283));
    EXPECT_EQ(1, int32At(info, 1287));
    EXPECT_EQ(8, int32At(info, 1291));
    EXPECT_EQ("CTransDownload", textAt(info, 1295, 20));
    EXPECT_TRUE(allZero(info, 1295 + 14, 1315));
    EXPECT_EQ(57, int32At(info, 1315));
    EXPECT_TRUE(allZero(info, 1319, 2315));
    for (std::size_t i = 2315; i < buffer.size(); ++i)
        ASSERT_EQ(kUntouched, buffer[i]) << "byte " << i << " behind the record was written";
}

TEST_F(LoadedLibrary, TranslationRecordsAreThreeFixedFieldsOf1024Bytes)
{
    int host = 0;
    EXPECT_EQ(0, registerWithRecordingHost(&host));
    symbol<InitializeFn>("Initialize")(nullptr, nullptr, nullptr, nullptr);

    std::vector<QByteArray> translations;
    for (const Received& message : received())
        if (message.code == HostMsg::RegisterTranslation)
            translations.push_back(message.record);
    ASSERT_EQ(51u, translations.size());
    const auto* first = reinterpret_cast<const unsigned char*>(translations.front().constData());
    EXPECT_EQ("CTransDownload", textAt(first, 0, 1024));
    EXPECT_EQ("C0007Cancel", textAt(first, 1024, 1024));
    EXPECT_EQ("Cancel", textAt(first, 2048, 1024));
    // Each field is zero-filled behind its text: a host that compares whole
    // fields must not see stale bytes.
    EXPECT_TRUE(allZero(first, std::strlen("CTransDownload"), 1024));
    EXPECT_TRUE(allZero(first, 1024 + std::strlen("C0007Cancel"), 2048));
    EXPECT_TRUE(allZero(first, 2048 + std::strlen("Cancel"), 3072));
    // Every field of every record ends within its 1024 bytes; the contexts,
    // keys and their order are checked in tests/spine/ModuleEntryTest.cpp.
    for (const QByteArray& record : translations)
        for (std::size_t field = 0; field < 3; ++field)
            textAt(reinterpret_cast<const unsigned char*>(record.constData()), 1024 * field, 1024);
}

TEST(UpdaterSegmentBytes, RequestFinishAndConfigurationCopy)
{
    std::vector<unsigned char> buffer(4112 + 64, kUntouched);
    auto& segment = *reinterpret_cast<umUpdateFile*>(buffer.data());
    const unsigned char* bytes = buffer.data();

    writeInstallRequest(segment, QStringLiteral("/tmp/dl/Chart\u00e9.so"), QStringLiteral("/opt/t/bin"));
    EXPECT_EQ(QStringLiteral("/tmp/dl/Chart\u00e9.so"), utf16At(bytes, 0, 1024));
    EXPECT_EQ(QStringLiteral("/opt/t/bin"), utf16At(bytes, 2048, 1024));
    EXPECT_TRUE(allZero(bytes, 2 * std::strlen("/tmp/dl/Charte.so"), 2048));
    EXPECT_TRUE(allZero(bytes, 2048 + 2 * std::strlen("/opt/t/bin"), 4096));
    EXPECT_EQ(0, int32At(bytes, 4096));  // done: pending
    EXPECT_EQ(0, int32At(bytes, 4104));  // finished
    EXPECT_EQ(0, int32At(bytes, 4108));  // copy configuration

    writeConfigCopyRequest(segment, QStringLiteral("/tmp/dl/a.cfg"), QStringLiteral("/opt/t/cfg"));
    EXPECT_EQ(QStringLiteral("/tmp/dl/a.cfg"), utf16At(bytes, 0, 1024));
    EXPECT_EQ(1, int32At(bytes, 4108));
    EXPECT_EQ(0, int32At(bytes, 4104));

    writeFinished(segment);
    EXPECT_EQ(1, int32At(bytes, 4104));
    EXPECT_TRUE(allZero(bytes, 0, 4104));
    EXPECT_TRUE(allZero(bytes, 4108, 4112));

    for (std::size_t i = 4112; i < buffer.size(); ++i)
        ASSERT_EQ(kUntouched, buffer[i]) << "byte " << i << " behind the segment was written";
}

namespace {

// A host that answers 3086-3088 from raw bytes at the offsets it knows, the
// way a host built from its own headers would.
struct ConfigurationHost {
    std::vector<unsigned int> codes;
    std::size_t listBlockCount = 0;
    int32_t tableId = 0;
    int32_t tableCount = 0;

    static int send(void* target, unsigned int code, intptr_t param1, intptr_t)
    {
        return static_cast<ConfigurationHost*>(target)->answer(
            code, reinterpret_cast<unsigned char*>(param1));
    }

    int answer(unsigned int code, unsigned char* block)
    {
        codes.push_back(code);
        if (code == HostMsg::ConfigurationCount) {
            putInt32(block, 0, 2);
        } else if (code == HostMsg::ConfigurationList) {
            // {int32 count, pointer to count entries of 538 bytes}
            listBlockCount = std::size_t(int32At(block, 0));
            auto* entries = static_cast<unsigned char*>(pointerAt(block, 4));
            if (!entries || listBlockCount != 2)
                return 1;
            fillConfiguration(entries, "Alpha", 7, 3, 2, 0, "alpha-second");
            fillConfiguration(entries + 538, "Beta", 12, 0, 5, 1, "beta-second");
        } else if (code == HostMsg::ModuleTable) {
            // {int32 table id, int32 count, pointer to count entries of 271 bytes}
            tableId = int32At(block, 0);
            tableCount = int32At(block, 4);
            auto* entries = static_cast<unsigned char*>(pointerAt(block, 8));
            if (!entries || tableCount != 2)
                return 1;
            for (int i = 0; i < 2; ++i) {
                unsigned char* entry = entries + 271 * i;
                putText(entry, 0, i == 0 ? "libChart.so" : "libNews.so");
                putInt32(entry, 255, 100 + i);  // build
                putInt32(entry, 259, 20 + i);   // minor
                putInt32(entry, 263, 3);        // major
                putInt32(entry, 267, 9);        // fourth
            }
        }
        return 0;
    }

    static void fillConfiguration(unsigned char* entry, const char* name, int32_t build,
                                  int32_t minor, int32_t major, int32_t current,
                                  const char* second)
    {
        putText(entry, 0, name);
        putInt32(entry, 255, build);
        putInt32(entry, 259, minor);
        putInt32(entry, 263, major);
        putInt32(entry, 267, 2);      // module-table entry count
        putInt32(entry, 271, 4711 + current);  // module-table identifier
        putInt32(entry, 275, -5);     // reserved
        putInt32(entry, 279, current);
        putText(entry, 283, second);
    }
};

}  // namespace

TEST(HostConfigurationBytes, ConfigurationsAndModuleTableReadFromTheHostsLayout)
{
    ConfigurationHost host;
    CInstalledProducts products(&ConfigurationHost::send, &host);

    const std::vector<coreNameConfig> configs = products.configurations();
    EXPECT_EQ((std::vector<unsigned int>{HostMsg::ConfigurationCount, HostMsg::ConfigurationList}),
              host.codes);
    EXPECT_EQ(2u, host.listBlockCount);
    ASSERT_EQ(2u, configs.size());
    EXPECT_STREQ("Alpha", configs[0].name);
    EXPECT_EQ(7, int32_t(configs[0].build));
    EXPECT_EQ(3, int32_t(configs[0].minor));
    EXPECT_EQ(2, int32_t(configs[0].major));
    EXPECT_STREQ("alpha-second", configs[0].secondName);
    // The second entry shows the 538-byte stride and the fields the first leaves at 0.
    EXPECT_STREQ("Beta", configs[1].name);
    EXPECT_EQ(1, int32_t(configs[1].current));
    EXPECT_EQ(4712, int32_t(configs[1].moduleTableId));
    EXPECT_STREQ("beta-second", configs[1].secondName);

    const std::vector<coreModuleEntry> table = products.moduleTable(configs[1]);
    EXPECT_EQ(4712, host.tableId);
    EXPECT_EQ(2, host.tableCount);
    ASSERT_EQ(2u, table.size());
    EXPECT_STREQ("libChart.so", table[0].name);
    EXPECT_EQ(100, int32_t(table[0].build));
    EXPECT_EQ(20, int32_t(table[0].minor));
    EXPECT_EQ(3, int32_t(table[0].major));
    EXPECT_STREQ("libNews.so", table[1].name);
    EXPECT_EQ(9, int32_t(table[1].fourth));
}
