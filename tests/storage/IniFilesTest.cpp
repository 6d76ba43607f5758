// The INI reader, which the module uses on download.cfg (it never writes INI
// files): files written by hand, each with one oddity, and a randomized run
// (fixed seed) against a model of the lookup rules written over std::string,
// which under AddressSanitizer also shows that no file makes the reader or
// its buffer read or write outside their memory.
#include <algorithm>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "StorageFiles.h"
#include "storage/IniFiles.h"

namespace {

std::string read(inifiles& ini, const char* section, const char* key)
{
    char value[2048];
    ini.ReadString(section, key, "<none>", value, sizeof value);
    return value;
}

inifiles handWritten(const char* name)
{
    return inifiles(QFile::encodeName(dataFile(name)), false);
}

std::string withoutSpacesAround(const std::string& text)
{
    const std::size_t first = text.find_first_not_of(' ');
    return first == std::string::npos ? std::string()
                                      : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::string keyOf(std::string text)
{
    for (char& c : text)
        if (c >= 'a' && c <= 'z')
            c = char(c - 32);
    return withoutSpacesAround(text);
}

// The lookup rules of the INI format, written out over a std::string.
bool modelLookup(const std::string& file, std::string section, const std::string& key, int size,
                 std::string& value)
{
    if (section.size() >= 1023)
        section.resize(section.size() - 3);
    const std::size_t header = file.find("[" + section + "]");
    if (header == std::string::npos)
        return false;
    for (std::size_t pos = header + section.size() + 2; pos < file.size();) {
        const std::size_t lineBreak = file.find('\n', pos);
        const std::size_t end = lineBreak == std::string::npos ? file.size() : lineBreak + 1;
        std::string line = file.substr(pos, std::min<std::size_t>(end - pos, 1024));
        pos = end;
        line = line.substr(0, line.find('\0'));
        if (!line.empty() && line[0] == '[')
            return false;
        std::string cleaned;
        std::copy_if(line.begin(), line.end(), std::back_inserter(cleaned),
                     [](char c) { return c != '\r' && c != '\n'; });
        const std::size_t equals = cleaned.find('=');
        if (equals == std::string::npos || keyOf(cleaned.substr(0, equals)) != keyOf(key))
            continue;
        const std::string raw = line.substr(line.find('=') + 1).substr(0, std::size_t(size - 1));
        value = withoutSpacesAround(raw.substr(0, raw.find_first_of("\r\n")));
        return true;
    }
    return false;
}

std::string randomIniText(std::mt19937& random)
{
    static const std::vector<std::string> lines = {
        "[S1]", "[s1]", "[S2]", " [S2]", "[S1", "key=value", " KEY = spaced value ",
        "k2=x=y", "k2", "=empty key", "key=", "Key=\xff\xfe", "[S3]x=1", "key = last"};
    static const std::vector<std::string> breaks = {"\r\n", "\r\n", "\n", "\r", ""};
    std::string text;
    const int count = int(random() % 9);
    for (int i = 0; i < count; ++i) {
        const int roll = int(random() % 12);
        if (roll == 0) {
            static const std::string bytes("ab=[] \r\n.\t\0\xff" "K", 13);
            for (unsigned n = random() % 13; n > 0; --n)
                text += bytes[random() % bytes.size()];
        } else if (roll == 1 && random() % 20 == 0)
            text += "key=" + std::string(1100 + random() % 50, 'L');
        else
            text += lines[random() % lines.size()];
        text += breaks[random() % breaks.size()];
    }
    return text;
}

}  // namespace

// What the reader finds in the files written by hand and what it must not
// find ("<none>": the default comes back).
TEST(IniRead, FilesWrittenByHand)
{
    const char* const last = "ini-last-section-at-end-of-file.ini";
    const char* const spaces = "ini-spaces-around-equals.ini";
    const struct {
        const char* file;
        const char* section;
        const char* key;
        const char* expected;
    } cases[] = {
        {last, "Tail", "Last", "end"},
        {last, "Server", "PATH", "<none>"},  // a section ends at the next header
        {"ini-lf-only-line-ends.ini", "Other", "x", "1"},
        {"ini-no-final-line-break.ini", "Server", "Timeout", "12"},
        // Spaces around keys and values are trimmed; inner spaces and tabs stay.
        {spaces, "Address", " PATH ", "value1"},
        {spaces, "Address", "inner key", "a b c"},
        {spaces, "Address", "\tTabbed", "1"},
        {spaces, "Address", "", "no key"},
        {"ini-duplicate-sections.ini", "Server", "URL", "first"},
        // CR-only line ends make the file one line: only its first value is read.
        {"ini-cr-only-line-ends.ini", "Server", "Timeout", "<none>"},
        // A NUL byte ends the line it is in; the next line is read.
        {"ini-nul-byte.ini", "Server", "URL", "before"},
        {"ini-nul-byte.ini", "Server", "Timeout", "5"},
        {"ini-binary-garbage.ini", "Server", "URL", "after-garbage"},
    };
    for (const auto& c : cases) {
        inifiles ini = handWritten(c.file);
        EXPECT_EQ(read(ini, c.section, c.key), c.expected) << c.file << " [" << c.section << "] " << c.key;
    }
}

// strtol's reading: digits up to the first letter, 0 for none at all.
TEST(IniRead, Integers)
{
    inifiles ini = handWritten("ini-last-section-at-end-of-file.ini");
    EXPECT_EQ(ini.ReadInteger("Server", "Timeout", 9), 30);
    EXPECT_EQ(ini.ReadInteger("Server", "Missing", 9), 9);
    EXPECT_EQ(ini.ReadInteger("Address", "Number", 9), 12);
    EXPECT_EQ(ini.ReadInteger("Address", "Word", 9), 0);
}

// A line is read up to the line limit and the next line after it; a section
// name of 1023 bytes or more loses three bytes before it is looked for.
TEST(IniRead, LongLinesAndSectionNames)
{
    QTemporaryDir dir;
    const QByteArray path = QFile::encodeName(dir.filePath("long.ini"));
    const QByteArray name1020(1020, 's');
    writeFile(dir.filePath("long.ini"), "[Big]\r\nKey=" + QByteArray(1 << 20, 'v') + "\r\nAfter=ok\r\n[" + name1020
                                            + "]\r\nk=v\r\n");
    inifiles ini(path, false);
    const struct {
        std::string section;
        const char* key;
        std::string expected;
    } cases[] = {
        {"Big", "Key", std::string(inifiles::kMaxLine - 4, 'v')},
        {"Big", "After", "ok"},
        {name1020.constData(), "k", "v"},
        {std::string(1022, 's'), "k", "<none>"},
        {std::string(1023, 's'), "k", "v"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(read(ini, c.section.c_str(), c.key), c.expected) << c.section.size() << " " << c.key;
}

TEST(IniRead, RandomFilesMatchAModelOfTheFormat)
{
    // Rewritten 100,000 times: in memory when it can, since a disk file
    // system flushes every rewrite of a truncated file on close (ext4).
    QTemporaryDir dir(QFileInfo(QStringLiteral("/dev/shm")).isWritable() ? QStringLiteral("/dev/shm/ini-XXXXXX")
                                                                          : QDir::tempPath() + "/ini-XXXXXX");
    const QByteArray path = QFile::encodeName(dir.filePath("random.ini"));
    std::mt19937 random(0x5eed0002u);
    static const std::vector<std::string> sections = {"S1", "s1", "S2", "S3", ""};
    static const std::vector<std::string> keys = {"key", "KEY", " key ", "k2", "", "value"};
    static const std::vector<int> sizes = {1, 2, 6, 64, 2048};
    for (int i = 0; i < 100000; ++i) {
        const std::string text = randomIniText(random);
        ASSERT_NO_FATAL_FAILURE(writeFile(dir.filePath("random.ini"), QByteArray::fromStdString(text)));
        inifiles ini(path.constData(), false);
        for (int query = 0; query < 2; ++query) {
            const std::string& section = sections[random() % sections.size()];
            const std::string& key = keys[random() % keys.size()];
            const int size = sizes[random() % sizes.size()];
            std::string expected = std::string("dflt").substr(0, std::size_t(size - 1));
            const bool found = modelLookup(text, section, key, size, expected);
            std::vector<char> out(std::size_t(size), '#');
            const int result = ini.ReadString(section.c_str(), key.c_str(), "dflt", out.data(), size);
            ASSERT_EQ(result, found ? 0 : 1) << "file " << i << " [" << section << "] " << key;
            ASSERT_EQ(std::string(out.data()), expected) << "file " << i;
        }
    }
}
