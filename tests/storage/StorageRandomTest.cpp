// A randomized run (fixed seed) of the INI reader against a model of the
// format's lookup rules written over std::string. Under AddressSanitizer it
// also shows that no file makes the reader or its buffer read or write
// outside their memory.
#include <algorithm>
#include <cstdio>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "storage/IniFiles.h"

namespace {

// The files of these runs are rewritten thousands of times; on a disk file
// system every rewrite of a truncated file is flushed on close (ext4 does so
// to protect replace-by-truncate), so they go to memory when it can.
QString scratchTemplate()
{
    const QFileInfo shm(QStringLiteral("/dev/shm"));
    return (shm.isDir() && shm.isWritable() ? QStringLiteral("/dev/shm") : QDir::tempPath())
           + QStringLiteral("/storage-random-XXXXXX");
}

bool writeBytes(const QByteArray& path, const std::string& bytes)
{
    FILE* file = std::fopen(path.constData(), "wb");
    if (!file)
        return false;
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    return std::fclose(file) == 0 && written;
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

TEST(StorageRandom, IniLookupsMatchAModelOfTheFormat)
{
    QTemporaryDir dir(scratchTemplate());
    ASSERT_TRUE(dir.isValid());
    const QByteArray path = QFile::encodeName(dir.filePath("random.ini"));
    std::mt19937 random(0x5eed0002u);
    static const std::vector<std::string> sections = {"S1", "s1", "S2", "S3", ""};
    static const std::vector<std::string> keys = {"key", "KEY", " key ", "k2", "", "value"};
    static const std::vector<int> sizes = {1, 2, 6, 64, 2048};
    for (int i = 0; i < 100000; ++i) {
        const std::string text = randomIniText(random);
        ASSERT_TRUE(writeBytes(path, text));
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
