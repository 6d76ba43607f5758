// Randomized runs (fixed seeds) of the byte buffer and the INI reader against
// small reference models written with std::string. Under AddressSanitizer they
// also show that no input makes either read or write outside its memory.
#include <algorithm>
#include <cstdio>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "storage/AppendixData.h"
#include "storage/IniFiles.h"

namespace {

// Bytes that matter to the searches and the INI format, plus a few others.
const std::string kAlphabet = std::string("ab=[] \r\n.\t", 10) + std::string(1, '\0') + "\xff" "K";

std::string randomBytes(std::mt19937& random, int maxLength)
{
    std::uniform_int_distribution<int> lengthOf(0, maxLength);
    std::uniform_int_distribution<int> pick(0, int(kAlphabet.size()) - 1);
    std::string bytes(std::size_t(lengthOf(random)), ' ');
    for (char& c : bytes)
        c = kAlphabet[std::size_t(pick(random))];
    return bytes;
}

// A pattern for the searches: usually short, sometimes at or past the limit.
std::string randomPattern(std::mt19937& random)
{
    if (random() % 20 == 0)
        return std::string(std::size_t(appendixData::kMaxPattern - 1 + int(random() % 2)), 'a');
    std::string pattern = randomBytes(random, 3);
    pattern.erase(std::remove(pattern.begin(), pattern.end(), '\0'), pattern.end());
    return pattern.empty() ? "\r\n" : pattern;
}

// A text without NUL bytes, to be inserted as a C string.
std::string randomText(std::mt19937& random, int maxLength)
{
    std::string text = randomBytes(random, maxLength);
    std::replace(text.begin(), text.end(), '\0', 'z');
    return text;
}

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

}  // namespace

// The model: the bytes, the capacity by the growth rule (room for what is
// needed plus extra plus the slack, only when it does not fit) and the mark.
TEST(StorageRandom, BufferEditsAndSearchesMatchAStringModel)
{
    std::mt19937 random(0x5eed0001u);
    appendixData buffer(16);
    std::string model;
    long long capacity = 16;
    int mark = -1;
    auto grow = [&](long long needed, long long extra) {
        if (needed > capacity)
            capacity = (long long)model.size() + extra + appendixData::kGrowthSlack;
    };
    for (int step = 0; step < 100000; ++step) {
        SCOPED_TRACE(step);
        const int length = int(model.size());
        std::uniform_int_distribution<int> position(-2, length + 2);
        switch (random() % 11) {
        case 0: {
            const std::string bytes = randomBytes(random, 24);
            ASSERT_EQ(buffer.increaseBuffer(bytes.data(), int(bytes.size())), bytes.empty() ? 1 : 0);
            grow(bytes.empty() ? 0 : length + (long long)bytes.size(), (long long)bytes.size());
            model += bytes;
            break;
        }
        case 1: {
            const std::string text = randomText(random, 8);
            const int pos = position(random);
            const bool valid = pos >= 0 && pos <= length;
            ASSERT_EQ(buffer.insertData(pos, text.c_str()), valid ? 0 : 1);
            if (valid && !text.empty()) {
                grow(length + (long long)text.size(), length + (long long)text.size());
                model.insert(std::size_t(pos), text);
            }
            break;
        }
        case 2: {
            const std::string text = randomText(random, 8);
            int start = position(random);
            int end = position(random);
            if (random() % 4 != 0 && start > end)
                std::swap(start, end);
            const bool valid = start >= 0 && start <= end && end <= length;
            ASSERT_EQ(buffer.replaceData(start, end, text.c_str()), valid ? 0 : 1);
            if (valid) {
                grow((long long)length - (end - start) + (long long)text.size(),
                     length + (long long)text.size());
                model.replace(std::size_t(start), std::size_t(end - start), text);
            }
            break;
        }
        case 3: {
            const int n = int(random() % 12) - 1;
            mark = int(random() % 20) - 2;
            buffer.setMark(mark);
            const int expected = (length == 0 || n < 0) ? -1 : 0;
            ASSERT_EQ(buffer.cutBuffer(n), expected);
            if (expected == 0)
                model.erase(0, std::size_t(std::min(n, length)));
            if (mark > 0 && (mark -= n) <= 0)
                mark = -1;
            ASSERT_EQ(buffer.getMark(), mark);
            break;
        }
        case 4: {
            const std::string pattern = randomPattern(random);
            int end = -7;
            const int result = buffer.findData(pattern.c_str(), &end);
            const std::size_t found = pattern.size() < std::size_t(appendixData::kMaxPattern)
                                          ? model.find(pattern) : std::string::npos;
            ASSERT_EQ(result, found == std::string::npos ? 1 : 0);
            ASSERT_EQ(end, found == std::string::npos ? 0 : int(found + pattern.size()));
            break;
        }
        case 5: {
            const std::string pattern = randomPattern(random);
            int from = position(random);
            const int start = std::max(from, 0);
            int end = -7;
            const int result = buffer.findData(from, pattern.c_str(), &end);
            if (start >= length || pattern.size() >= std::size_t(appendixData::kMaxPattern)) {
                ASSERT_EQ(result, 1);
                ASSERT_EQ(end, 0);
                break;
            }
            const std::size_t found = model.find(pattern, std::size_t(start));
            ASSERT_EQ(result, found == std::string::npos ? 1 : 0);
            if (found == std::string::npos) {
                ASSERT_EQ(end, length);
                ASSERT_EQ(from, std::max(start, length - int(pattern.size()) + 1));
            } else {
                ASSERT_EQ(from, int(found));
                ASSERT_EQ(end, int(found + pattern.size()));
            }
            break;
        }
        case 6: {
            int pos = position(random);
            const int start = std::max(pos, 0);
            const int size = int(random() % 8);
            std::vector<char> out(std::size_t(size) + 1, '#');
            const int result = buffer.findOneStr(pos, out.data(), size);
            ASSERT_EQ(result, start >= length ? 1 : 0);
            if (result)
                break;
            const std::size_t lineBreak = model.find('\n', std::size_t(start));
            const int end = lineBreak == std::string::npos ? length : int(lineBreak) + 1;
            ASSERT_EQ(pos, end);
            const int copied = std::min(end - start, size);
            ASSERT_EQ(std::string(out.data(), std::size_t(copied)),
                      model.substr(std::size_t(start), std::size_t(copied)));
            ASSERT_EQ(out[std::size_t(copied)], '\0');
            break;
        }
        case 7: {
            int n = int(random() % 12) - 1;
            std::vector<char> out(12, '#');
            const int count = std::max(0, std::min(n, length));
            buffer.getDataFromBuff(out.data(), &n);
            ASSERT_EQ(n, count);
            ASSERT_EQ(std::string(out.data(), std::size_t(count)), model.substr(0, std::size_t(count)));
            ASSERT_TRUE(count > 0 || out[0] == '\0');  // nothing to copy still leaves an empty C string
            break;
        }
        case 8: {
            const std::string text = randomText(random, 30);
            buffer = text.c_str();
            grow((long long)text.size(), (long long)text.size());
            model = text;
            break;
        }
        case 9: {
            const int n = length > 0 ? int(random() % std::size_t(length + 1)) : 0;
            ASSERT_EQ(buffer.setNewOffset(n), 0);
            model.resize(std::size_t(n));
            break;
        }
        default:
            if (length > 2000 || random() % 50 == 0) {
                buffer.releaseBuffer(false);
                model.clear();
            }
        }
        const int used = buffer.getLength();
        ASSERT_EQ(std::string(used > 0 ? buffer.getData() : "", std::size_t(used)), model);
        ASSERT_EQ(buffer.getCapacity(), capacity);
        ASSERT_EQ(buffer.IsEmpty(), model.empty());
    }
}

namespace {

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
        if (roll == 0)
            text += randomBytes(random, 12);
        else if (roll == 1 && random() % 20 == 0)
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

TEST(StorageRandom, IniWritesReadBackLikeAMap)
{
    QTemporaryDir dir(scratchTemplate());
    ASSERT_TRUE(dir.isValid());
    const QByteArray path = QFile::encodeName(dir.filePath("written.ini"));
    std::mt19937 random(0x5eed0003u);
    static const std::vector<std::string> sections = {"A", "B", "Cc", "dd"};
    static const std::vector<std::string> keys = {"x", "X", "y", "Long Key", "long key"};
    static const std::vector<std::string> starts = {"", "[A]\r\nx=0", "junk\r\n", "[B]\r\ny=1\r\n"};
    for (int run = 0; run < 400; ++run) {
        const std::string start = starts[random() % starts.size()];
        ASSERT_TRUE(writeBytes(path, start));
        std::map<std::string, std::map<std::string, std::string>> model;
        if (start.find("[A]") != std::string::npos)
            model["A"]["X"] = "0";
        if (start.find("[B]") != std::string::npos)
            model["B"]["Y"] = "1";
        inifiles ini(path.constData(), false);
        for (int write = 0; write < 25; ++write) {
            const std::string& section = sections[random() % sections.size()];
            const std::string& key = keys[random() % keys.size()];
            const std::string value = "v" + std::to_string(random() % 1000) + " w";
            ASSERT_EQ(ini.WriteString(section.c_str(), key.c_str(), value.c_str()),
                      model[section].count(keyOf(key)) > 0);
            model[section][keyOf(key)] = value;
            inifiles reread(path.constData(), false);
            for (const std::string& s : sections) {
                for (const std::string& k : keys) {
                    char out[64];
                    reread.ReadString(s.c_str(), k.c_str(), "-", out, sizeof out);
                    const auto entry = model[s].find(keyOf(k));
                    ASSERT_EQ(std::string(out), entry == model[s].end() ? "-" : entry->second)
                        << "run " << run << " write " << write << " [" << s << "] " << k;
                }
            }
        }
    }
}
