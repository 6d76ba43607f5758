#include "storage/IniFiles.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace {

// A section name this long loses its last three bytes before it is looked
// for; writers never produce a header that long, see kMaxWrittenLine.
constexpr int kLongSectionName = 1023;

// Copies at most size - 1 bytes of text and terminates; nothing for size < 1.
void copyBounded(char* out, int size, const char* text)
{
    if (!out || size < 1)
        return;
    const std::size_t length = text ? strnlen(text, std::size_t(size - 1)) : 0;
    if (length > 0)
        std::memcpy(out, text, length);
    out[length] = 0;
}

// Trims leading and trailing blanks: only the space, tabs stay.
std::string delSpaceFromStr(const std::string& text)
{
    const std::size_t first = text.find_first_not_of(' ');
    if (first == std::string::npos)
        return std::string();
    const std::size_t last = text.find_last_not_of(' ');
    return text.substr(first, last - first + 1);
}

std::string normalizedKey(const std::string& key)
{
    std::string upper = key;
    for (char& c : upper)
        if (c >= 'a' && c <= 'z')
            c = char(c - 'a' + 'A');
    return delSpaceFromStr(upper);
}

// The value part of a line: after the first "=", bounded, cut at the line
// break, trimmed of spaces.
std::string valueOf(const char* line, int size)
{
    const char* equals = std::strchr(line, '=');
    if (!equals || size < 1)
        return std::string();
    std::string value(equals + 1, strnlen(equals + 1, std::size_t(size - 1)));
    const std::size_t lineBreak = value.find_first_of("\r\n");
    if (lineBreak != std::string::npos)
        value.resize(lineBreak);
    return delSpaceFromStr(value);
}

// The line without its CR and LF bytes.
std::string withoutLineBreaks(const char* line)
{
    std::string cleaned;
    for (const char* c = line; *c; ++c)
        if (*c != '\r' && *c != '\n')
            cleaned += *c;
    return cleaned;
}

}  // namespace

inifiles::inifiles(const char* filePath, bool createFile)
    : create(createFile)
    , path(filePath ? filePath : "")
{
    if (copyToBuffer() != 0 && create)
        copyToFile();
}

int inifiles::copyToBuffer()
{
    buffer.releaseBuffer(false);
    FILE* file = std::fopen(path.constData(), "rb");
    if (!file)
        return 1;
    // Only a regular file has a length worth reading whole; a directory opens
    // for reading on Linux but reports a meaningless size.
    struct stat info;
    if (fstat(fileno(file), &info) != 0 || !S_ISREG(info.st_mode)
        || std::fseek(file, 0, SEEK_END) != 0) {
        std::fclose(file);
        return 1;
    }
    const long size = std::ftell(file);
    std::rewind(file);
    if (size < 0 || size > INT_MAX / 4) {
        std::fclose(file);
        return 1;
    }
    if (size > 0) {
        std::vector<char> bytes(static_cast<std::size_t>(size));
        const std::size_t got = std::fread(bytes.data(), 1, bytes.size(), file);
        if (got > 0)
            buffer.increaseBuffer(bytes.data(), int(got));
    }
    std::fclose(file);
    return 0;
}

int inifiles::copyToFile()
{
    FILE* file = std::fopen(path.constData(), "wb");
    if (!file)
        return 1;
    const std::size_t length = std::size_t(buffer.getLength());
    const bool written = length == 0 || std::fwrite(buffer.getData(), 1, length, file) == length;
    const bool closed = std::fclose(file) == 0;
    return written && closed ? 0 : 1;
}

int inifiles::sectionBodyStart(const char* section) const
{
    if (!section || buffer.getLength() == 0)
        return -1;
    QByteArray name(section);
    if (name.size() >= kLongSectionName)
        name.chop(3);
    const QByteArray pattern = '[' + name + ']';
    const QByteArray bytes = QByteArray::fromRawData(buffer.getData(), buffer.getLength());
    const int found = bytes.indexOf(pattern);
    return found < 0 ? -1 : found + pattern.size();
}

bool inifiles::findNameParam(const char* line, const char* key, char* out, int size,
                             bool wantValue)
{
    const std::string cleaned = withoutLineBreaks(line);
    const std::size_t equals = cleaned.find('=');
    if (equals == std::string::npos)
        return false;
    if (normalizedKey(cleaned.substr(0, equals)) != normalizedKey(key))
        return false;
    if (wantValue)
        copyBounded(out, size, valueOf(line, size).c_str());
    return true;
}

bool inifiles::findSection(const char* section, const char* key, char* out, int size)
{
    int pos = sectionBodyStart(section);
    if (pos < 0 || !key)
        return false;
    char line[kMaxLine + 1];
    while (buffer.findOneStr(pos, line, kMaxLine) == 0) {
        if (line[0] == '[')
            return false;
        if (findNameParam(line, key, out, size, true))
            return true;
    }
    return false;
}

int inifiles::ReadString(const char* section, const char* key, const char* def, char* buf,
                         int size)
{
    if (findSection(section, key, buf, size))
        return 0;
    copyBounded(buf, size, def);
    if (create)
        WriteString(section, key, def ? def : "");
    return 1;
}

int inifiles::ReadInteger(const char* section, const char* key, int def)
{
    char defText[100];
    std::snprintf(defText, sizeof defText, "%d", def);
    char value[kMaxLine];
    if (ReadString(section, key, defText, value, sizeof value) != 0)
        return def;
    return int(std::strtol(value, nullptr, 10));
}

bool inifiles::ReadBool(const char* section, const char* key, bool def)
{
    return ReadInteger(section, key, def ? 1 : 0) == 1;
}

double inifiles::ReadFloat(const char* section, const char* key, double def)
{
    char defText[512];
    std::snprintf(defText, sizeof defText, "%f", def);
    char value[kMaxLine];
    if (ReadString(section, key, defText, value, sizeof value) != 0)
        return def;
    return std::strtod(value, nullptr);
}

bool inifiles::WriteString(const char* section, const char* key, const char* value)
{
    return writeSection(key, section, value ? value : "");
}

bool inifiles::WriteInteger(const char* section, const char* key, int value)
{
    char text[100];
    std::snprintf(text, sizeof text, "%d", value);
    return WriteString(section, key, text);
}

bool inifiles::WriteFloat(const char* section, const char* key, double value)
{
    char text[512];
    std::snprintf(text, sizeof text, "%f", value);
    return WriteString(section, key, text);
}

bool inifiles::WriteBool(const char* section, const char* key, bool value)
{
    char text[20];
    std::snprintf(text, sizeof text, "%d", value ? 1 : 0);
    return WriteString(section, key, text);
}

bool inifiles::paramIsExist(const char* section, const char* key)
{
    return findSection(section, key, nullptr, 0);
}

bool inifiles::endsWithLineBreak() const
{
    const int length = buffer.getLength();
    return length >= 2 && buffer[length - 2] == '\r' && buffer[length - 1] == '\n';
}

void inifiles::insertParameter(int position, const char* key, const char* value)
{
    // The line break in front depends on how the whole buffer ends, not on
    // what precedes the insertion point: a file whose last line lacks a line
    // break gets an empty line before a parameter added in its middle.
    char line[kMaxWrittenLine + 1];
    std::snprintf(line, sizeof line, endsWithLineBreak() ? "%s=%s\r\n" : "\r\n%s=%s\r\n", key,
                  value);
    buffer.insertData(position, line);
}

bool inifiles::writeSection(const char* key, const char* section, const char* value)
{
    if (!key || !section)
        return false;
    int pos = sectionBodyStart(section);
    if (pos < 0) {
        char header[kMaxWrittenLine + 1];
        std::snprintf(header, sizeof header, endsWithLineBreak() ? "[%s]\r\n" : "\r\n[%s]\r\n",
                      section);
        buffer.insertData(buffer.getLength(), header);
        insertParameter(buffer.getLength(), key, value);
        copyToFile();
        return false;
    }
    char line[kMaxLine + 1];
    int insertAt = buffer.getLength();
    for (;;) {
        const int lineStart = pos;
        if (buffer.findOneStr(pos, line, kMaxLine) != 0)
            break;
        if (line[0] == '[') {
            insertAt = lineStart;
            break;
        }
        if (findNameParam(line, key, nullptr, 0, false)) {
            char replacement[kMaxWrittenLine + 1];
            std::snprintf(replacement, sizeof replacement, "%s=%s\r\n", key, value);
            buffer.replaceData(lineStart, pos, replacement);
            copyToFile();
            return true;
        }
    }
    insertParameter(insertAt, key, value);
    copyToFile();
    return false;
}

int inifiles::findFirstSection(char* name, int size)
{
    sectionCursor = 0;
    listingSections = true;
    return findNextSection(name, size);
}

int inifiles::findNextSection(char* name, int size)
{
    if (!listingSections)
        return 1;
    char line[kMaxLine + 1];
    while (buffer.findOneStr(sectionCursor, line, kMaxLine) == 0) {
        const char* close = line[0] == '[' ? std::strchr(line, ']') : nullptr;
        if (!close)
            continue;
        const std::string sectionName(static_cast<const char*>(line) + 1, close);
        copyBounded(name, size, sectionName.c_str());
        return 0;
    }
    listingSections = false;
    return 1;
}

int inifiles::CopyNameParam(const char* section, int index, char* name, int nameSize,
                            char* value, int valueSize)
{
    int pos = sectionBodyStart(section);
    if (pos < 0 || index < 0)
        return 1;
    char line[kMaxLine + 1];
    int seen = 0;
    while (buffer.findOneStr(pos, line, kMaxLine) == 0) {
        if (line[0] == '[')
            return 1;
        const std::string cleaned = withoutLineBreaks(line);
        const std::size_t equals = cleaned.find('=');
        if (equals == std::string::npos || seen++ != index)
            continue;
        copyBounded(name, nameSize, delSpaceFromStr(cleaned.substr(0, equals)).c_str());
        copyBounded(value, valueSize, valueOf(line, valueSize).c_str());
        return 0;
    }
    return 1;
}
