// The built library as a host loads it: its exports and SONAME, and the
// records it hands a host read back at the offsets an i386 host reads them at.
// The offsets are written out, not taken from the structs, so that a layout
// that drifted fails even when a struct and its static_asserts changed
// together. The run that matters is the i386 build (scripts/test-i386).
#include <dlfcn.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <gtest/gtest.h>

#include "protocol/HostMessages.h"
#include "protocol/InstallRecords.h"
#include "module/TextTable.h"
#include "protocol/ModuleApi.h"
#include "update/InstalledProducts.h"
#include "update/UpdaterProtocol.h"

// The built library, loaded the way a host loads it, and a host callback that
// keeps what the library sends while it registers.
class LoadedLibrary : public ::testing::Test {
protected:
    void SetUp() override
    {
        handle_ = dlopen(DM_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(nullptr, handle_) << dlerror();
        translations.clear();
    }
    void TearDown() override
    {
        if (handle_)
            dlclose(handle_);
    }
    // Null when missing, which the callers assert before use.
    template <class F>
    F symbol(const char* name) { return reinterpret_cast<F>(dlsym(handle_, name)); }

    // The 3072 bytes behind param1 of each 3019.
    static inline std::vector<QByteArray> translations;
    static int recordingHost(void*, unsigned int code, intptr_t param1, intptr_t)
    {
        if (code == HostMsg::RegisterTranslation)
            translations.emplace_back(reinterpret_cast<const char*>(param1), 3072);
        return 0;
    }

    void* handle_ = nullptr;
};

namespace {

constexpr unsigned char kUntouched = 0xEE;

// Little-endian by construction, whatever the test machine is.
int32_t int32At(const unsigned char* bytes, std::size_t offset)
{
    return int32_t(uint32_t(bytes[offset]) | uint32_t(bytes[offset + 1]) << 8 |
                   uint32_t(bytes[offset + 2]) << 16 | uint32_t(bytes[offset + 3]) << 24);
}

std::vector<int32_t> int32sAt(const unsigned char* bytes, std::initializer_list<std::size_t> offsets)
{
    std::vector<int32_t> values;
    for (std::size_t offset : offsets)
        values.push_back(int32At(bytes, offset));
    return values;
}

void putInt32(unsigned char* bytes, std::size_t offset, int32_t value)
{
    for (int i = 0; i < 4; ++i)
        bytes[offset + i] = static_cast<unsigned char>(uint32_t(value) >> (8 * i));
}

// The field of width bytes at offset holds text and zeros behind it: a host
// that compares whole fields must not see stale bytes.
::testing::AssertionResult fieldIs(const unsigned char* bytes, std::size_t offset, std::size_t width,
                                   const std::string& text)
{
    const std::string field(reinterpret_cast<const char*>(bytes + offset), width);
    if (text.size() < width && field == text + std::string(width - text.size(), '\0'))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "field at " << offset << " holds \"" << field.c_str() << "\"";
}

// The same for a field of units UTF-16LE code units.
::testing::AssertionResult utf16FieldIs(const unsigned char* bytes, std::size_t offset, std::size_t units,
                                        const QString& text)
{
    std::string expected;
    for (const QChar c : text)
        expected += {char(c.unicode() & 0xFF), char(c.unicode() >> 8)};
    return fieldIs(bytes, offset, 2 * units, expected);
}

void putText(unsigned char* bytes, std::size_t offset, const char* text)
{
    std::memcpy(bytes + offset, text, std::strlen(text) + 1);
}

}  // namespace

TEST(LibraryExports, ExactlyTheFourEntryPointsAndSonameVersionOne)
{
    auto run = [](const QString& program, const QStringList& arguments) {
        QProcess process;
        process.start(program, arguments);
        EXPECT_TRUE(process.waitForFinished(-1) && process.exitCode() == 0) << program.toStdString();
        return QString::fromLocal8Bit(process.readAllStandardOutput());
    };
    std::set<std::string> exported;
    for (const QString& line : run("nm", {"-D", "--defined-only", DM_LIBRARY_PATH}).split('\n', Qt::SkipEmptyParts))
        exported.insert(line.section(' ', -1).toStdString());
    EXPECT_EQ((std::set<std::string>{"GetModule", "GetModuleInfo", "Initialize", "ReceiveMessage"}), exported);
    EXPECT_TRUE(run("readelf", {"-d", DM_LIBRARY_PATH}).contains("Library soname: [libDownloadModule.so.1]"));
}

TEST_F(LoadedLibrary, InfoRecordIsByteExactWhereTheHostReadsIt)
{
    auto getModuleInfo = symbol<GetModuleInfoFn>("GetModuleInfo");
    ASSERT_NE(nullptr, getModuleInfo);
    EXPECT_EQ(0, getModuleInfo(nullptr));
    // The host's buffer is exactly 2315 bytes: the guard behind it catches a
    // record that grew, and anything inside it not written stays 0xEE.
    std::vector<unsigned char> buffer(2315 + 64, kUntouched);
    ASSERT_EQ(0, getModuleInfo(reinterpret_cast<MODULE_INFO*>(buffer.data())));
    const unsigned char* info = buffer.data();
    EXPECT_TRUE(fieldIs(info, 0, 255, "Velmora.Download module"));
    EXPECT_TRUE(fieldIs(info, 255, 1024, "Update module"));
    // The constructor's numbers 1, 2, 9 are stored in reverse order.
    EXPECT_EQ((std::vector<int32_t>{9, 2, 1, 8}), int32sAt(info, {1279, 1283, 1287, 1291}));
    EXPECT_TRUE(fieldIs(info, 1295, 20, "CTransDownload"));
    EXPECT_EQ(57, int32At(info, 1315));
    EXPECT_TRUE(fieldIs(info, 1319, 2315 - 1319, ""));
    EXPECT_EQ(std::vector<unsigned char>(64, kUntouched),
              std::vector<unsigned char>(buffer.begin() + 2315, buffer.end()));
}

// Registration through the library's own entry points: 3007 registers the
// module and its texts, 3004 is answered. (That Initialize only stores is
// tests/spine's Registration.)
TEST_F(LoadedLibrary, TranslationRecordsAreThreeFixedFieldsOf1024Bytes)
{
    auto getModule = symbol<GetModuleFn>("GetModule");
    auto initialize = symbol<InitializeFn>("Initialize");
    auto receiveMessage = symbol<ReceiveMessageFn>("ReceiveMessage");
    ASSERT_TRUE(getModule && initialize && receiveMessage);
    // The library's own module object, not the one this test links.
    EXPECT_NE(nullptr, getModule());
    EXPECT_NE(static_cast<void*>(getModule()), static_cast<void*>(GetModule()));
    int host = 0;
    initialize(&recordingHost, &recordingHost, &host, nullptr);
    char program[] = "host";
    char* argv[] = {program};
    EXPECT_EQ(0, receiveMessage(&host, HostMsg::CommandLine, 1, reinterpret_cast<intptr_t>(argv)));
    EXPECT_EQ(0, receiveMessage(&host, HostMsg::HostReady, 0, 0));
    initialize(nullptr, nullptr, nullptr, nullptr);

    // Three fixed fields of 1024 bytes: context, key and default text, in the
    // table's order, which the host keeps.
    ASSERT_EQ(51, kTextTableSize);
    ASSERT_EQ(std::size_t(kTextTableSize), translations.size());
    auto field = [](const char* text) { return QByteArray(text) + QByteArray(1024 - int(std::strlen(text)), '\0'); };
    for (int i = 0; i < kTextTableSize; ++i)
        EXPECT_EQ(field("CTransDownload") + field(kTextTable[i].key) + field(kTextTable[i].text),
                  translations[std::size_t(i)]) << i;
    // The table's bytes as translators key on them, M0264 before M0177.
    const char* const pinned[][2] = {
        {kTextTable[0].text, "Cancel"}, {kTextTable[33].text, "Downloading\x85"},  // the Windows-1252 ellipsis
        {kTextTable[42].text, "File(s) was not found on download server.\r\nPlease contact to support."},
        {kTextTable[49].key, "M0264"}, {kTextTable[50].key, "M0177"}};
    for (const auto& [actual, expected] : pinned)
        EXPECT_STREQ(expected, actual);
}

TEST(UpdaterSegmentBytes, RequestFinishAndConfigurationCopy)
{
    std::vector<unsigned char> buffer(4112 + 64, kUntouched);
    auto& segment = *reinterpret_cast<umUpdateFile*>(buffer.data());
    const unsigned char* bytes = buffer.data();
    // done at 4096, finished at 4104, copy configuration at 4108.
    auto flags = [&] { return int32sAt(bytes, {4096, 4104, 4108}); };

    writeInstallRequest(segment, QStringLiteral("/tmp/dl/Chart\u00e9.so"), QStringLiteral("/opt/t/bin"));
    EXPECT_TRUE(utf16FieldIs(bytes, 0, 1024, QStringLiteral("/tmp/dl/Chart\u00e9.so")));
    EXPECT_TRUE(utf16FieldIs(bytes, 2048, 1024, QStringLiteral("/opt/t/bin")));
    EXPECT_EQ((std::vector<int32_t>{0, 0, 0}), flags());

    writeConfigCopyRequest(segment, QStringLiteral("/tmp/dl/a.cfg"), QStringLiteral("/opt/t/cfg"));
    EXPECT_TRUE(utf16FieldIs(bytes, 0, 1024, QStringLiteral("/tmp/dl/a.cfg")));
    EXPECT_EQ((std::vector<int32_t>{0, 0, 1}), flags());

    writeFinished(segment);
    EXPECT_TRUE(fieldIs(bytes, 0, 4104, ""));
    EXPECT_EQ((std::vector<int32_t>{0, 1, 0}), flags());
    EXPECT_EQ(std::vector<unsigned char>(64, kUntouched),
              std::vector<unsigned char>(buffer.begin() + 4112, buffer.end()));
}

namespace {

// A host that answers 3086-3088 from raw bytes at the offsets a host built
// from its own headers knows: a configuration is 538 bytes (name, seven int32
// at 255, a second name at 283), a module-table entry 271 (name, four int32 at
// 255). Entry i's numbers are 100 * (i + 1) + their place, so a field read
// from the wrong place shows. target keeps the request's leading int32s.
int configurationHost(void* target, unsigned int code, intptr_t param1, intptr_t)
{
    auto* block = reinterpret_cast<unsigned char*>(param1);
    if (code == HostMsg::ConfigurationCount)
        putInt32(block, 0, 2);
    if (code != HostMsg::ConfigurationList && code != HostMsg::ModuleTable)
        return 0;
    const bool list = code == HostMsg::ConfigurationList;
    auto& asked = *static_cast<std::vector<int32_t>*>(target);
    asked = list ? int32sAt(block, {0}) : int32sAt(block, {0, 4});
    unsigned char* entries = nullptr;
    std::memcpy(&entries, block + (list ? 4 : 8), sizeof entries);
    if (!entries || asked.back() != 2)
        return 1;
    for (int i = 0; i < 2; ++i) {
        unsigned char* entry = entries + (list ? 538 : 271) * i;
        putText(entry, 0, list ? (i ? "Beta" : "Alpha") : (i ? "libNews.so" : "libChart.so"));
        for (int place = 0; place < (list ? 7 : 4); ++place)
            putInt32(entry, 255 + 4 * place, list && place == 3 ? 2 : 100 * (i + 1) + place);
        if (list)
            putText(entry, 283, i ? "beta-second" : "alpha-second");
    }
    return 0;
}

}  // namespace

TEST(HostConfigurationBytes, ConfigurationsAndModuleTableReadFromTheHostsLayout)
{
    std::vector<int32_t> asked;
    CInstalledProducts products(&configurationHost, &asked);
    const std::vector<coreNameConfig> configs = products.configurations();
    EXPECT_EQ((std::vector<int32_t>{2}), asked);
    QStringList seen;
    for (const coreNameConfig& c : configs)
        seen << QString::asprintf("%s %d %d %d %d %d %d %d %s", c.name, c.build, c.minor, c.major, c.moduleCount,
                                  c.moduleTableId, c.reserved, c.current, c.secondName);
    EXPECT_EQ("Alpha 100 101 102 2 104 105 106 alpha-second|Beta 200 201 202 2 204 205 206 beta-second",
              seen.join('|'));
    ASSERT_EQ(2u, configs.size());
    seen.clear();
    for (const coreModuleEntry& e : products.moduleTable(configs[1]))
        seen << QString::asprintf("%s %d %d %d %d", e.name, e.build, e.minor, e.major, e.fourth);
    EXPECT_EQ((std::vector<int32_t>{204, 2}), asked);
    EXPECT_EQ("libChart.so 100 101 102 103|libNews.so 200 201 202 203", seen.join('|'));
}
