// The INI reader, which the module uses on download.cfg (it never writes INI
// files), against files written by hand. ReadString's results and bounds are
// held against a model of the format in StorageRandomTest.cpp.
#include <string>

#include <QByteArray>
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

// Files written by hand, each with one oddity: what the reader finds in them
// and what it must not find ("<none>": the default comes back). The lookup
// rules as a whole are held against a model in StorageRandomTest.cpp.
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
