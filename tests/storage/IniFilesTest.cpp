// The INI reader, which the module uses on download.cfg (it never writes INI
// files): files written by hand, each with one oddity, long lines and names,
// and the caller's buffer bounds.
#include <string>
#include <vector>

#include <QFile>
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

}  // namespace

// What the reader finds in the files written by hand, and in one with a
// line past the line limit and long section names, and what it must not
// find ("<none>": the default comes back). A long line is read up to the
// limit and the next line after it; a section name of 1023 bytes or more
// loses three bytes before it is looked for.
TEST(IniRead, FilesWrittenByHandAndLongLines)
{
    QTemporaryDir dir;
    const QByteArray name1020(1020, 's');
    writeText(dir.filePath("long.ini"), "[Big]\r\nKey=" + QByteArray(1 << 20, 'v') + "\r\nAfter=ok\r\n[" + name1020
                                            + "]\r\nk=v\r\n");
    const char* const last = "ini-last-section-at-end-of-file.ini";
    const char* const spaces = "ini-spaces-around-equals.ini";
    const struct {
        const char* file;  // null: the long one written here
        std::string section;
        const char* key;
        std::string expected;
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
        {nullptr, "Big", "Key", std::string(inifiles::kMaxLine - 4, 'v')},
        {nullptr, "Big", "After", "ok"},
        {nullptr, name1020.constData(), "k", "v"},
        {nullptr, std::string(1022, 's'), "k", "<none>"},
        {nullptr, std::string(1023, 's'), "k", "v"},
    };
    for (const auto& c : cases) {
        inifiles ini = c.file ? handWritten(c.file) : inifiles(QFile::encodeName(dir.filePath("long.ini")), false);
        EXPECT_EQ(read(ini, c.section.c_str(), c.key), c.expected)
            << (c.file ? c.file : "long.ini") << " [" << c.section.substr(0, 40) << "] " << c.key;
    }
}

// A value, and the default for a key not found, is cut to the caller's
// buffer before its spaces are trimmed; the result says whether it was found.
TEST(IniRead, ValuesAndDefaultsAreCutToTheBuffer)
{
    inifiles ini = handWritten("ini-spaces-around-equals.ini");
    const struct {
        const char* key;
        int size;
        const char* expected;
        int result;
    } cases[] = {{"inner key", 6, "a b", 0}, {"inner key", 1, "", 0}, {"empty", 4, "", 0}, {"absent", 3, "df", 1}};
    for (const auto& c : cases) {
        std::vector<char> out(std::size_t(c.size) + 1, '#');
        EXPECT_EQ(ini.ReadString("Address", c.key, "dflt", out.data(), c.size), c.result) << c.key << " " << c.size;
        EXPECT_STREQ(out.data(), c.expected) << c.key << " " << c.size;
        EXPECT_EQ(out[std::size_t(c.size)], '#') << "written past the buffer";
    }
}
