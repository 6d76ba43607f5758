// The INI reader and writer against files written by hand and files it
// writes itself. ReadString's results and bounds and WriteString's answers
// are held against a model of the format in StorageRandomTest.cpp.
#include <string>
#include <vector>

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

class IniWriteTest : public ::testing::Test {
protected:
    // A file holding bytes in a fresh temporary folder.
    QByteArray fileWith(const QByteArray& bytes)
    {
        writeFile(dir.filePath("test.ini"), bytes);
        return QFile::encodeName(dir.filePath("test.ini"));
    }
    QByteArray missingFile() const { return QFile::encodeName(dir.filePath("missing.ini")); }

    QTemporaryDir dir;
};

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

TEST(IniRead, TypedReaders)
{
    inifiles ini = handWritten("ini-last-section-at-end-of-file.ini");
    EXPECT_EQ(ini.ReadInteger("Server", "Timeout", 9), 30);
    EXPECT_EQ(ini.ReadInteger("Server", "Missing", 9), 9);
    EXPECT_EQ(ini.ReadInteger("Address", "Number", 9), 12);  // strtol stops at the letters
    EXPECT_EQ(ini.ReadInteger("Address", "Word", 9), 0);     // not a number: 0, not the default
    EXPECT_FALSE(ini.ReadBool("Address", "Flag", true));     // 2 is not true
    EXPECT_TRUE(ini.ReadBool("Address", "On", false));
    EXPECT_TRUE(ini.ReadBool("Address", "Missing", true));
    EXPECT_DOUBLE_EQ(ini.ReadFloat("Address", "Rate", 0.0), 2.5);
    EXPECT_DOUBLE_EQ(ini.ReadFloat("Address", "Missing", 1.25), 1.25);
    EXPECT_TRUE(ini.paramIsExist("Address", "ON"));
    EXPECT_FALSE(ini.paramIsExist("Tail", "ON"));
}

TEST(IniRead, EnumeratesSectionsAndParameters)
{
    inifiles ini = handWritten("ini-last-section-at-end-of-file.ini");
    char name[8];
    std::vector<std::string> sections;
    for (int r = ini.findFirstSection(name, sizeof name); r == 0; r = ini.findNextSection(name, sizeof name))
        sections.push_back(name);
    EXPECT_EQ(sections, (std::vector<std::string>{"Server", "Address", "Tail"}));
    EXPECT_EQ(ini.findNextSection(name, sizeof name), 1);

    char key[16];
    char value[16];
    ASSERT_EQ(ini.CopyNameParam("Address", 1, key, sizeof key, value, sizeof value), 0);
    EXPECT_STREQ(key, "Case");
    EXPECT_STREQ(value, "Keep Me");
    ASSERT_EQ(ini.CopyNameParam("Address", 0, key, 3, value, 4), 0);
    EXPECT_STREQ(key, "PA");
    EXPECT_STREQ(value, "va");  // bounded first (" va"), then trimmed
    EXPECT_EQ(ini.CopyNameParam("Tail", 1, key, sizeof key, value, sizeof value), 1);
    EXPECT_EQ(ini.CopyNameParam("None", 0, key, sizeof key, value, sizeof value), 1);
}

TEST_F(IniWriteTest, OneMegabyteLineIsReadUpToTheLineLimit)
{
    const QByteArray big(1 << 20, 'v');
    const QByteArray path = fileWith("[Big]\r\nKey=" + big + "\r\nAfter=ok\r\n");
    inifiles ini(path, false);
    EXPECT_EQ(read(ini, "Big", "Key"), std::string(inifiles::kMaxLine - 4, 'v'));
    EXPECT_EQ(read(ini, "Big", "After"), "ok");
    EXPECT_TRUE(ini.WriteString("Big", "After", "changed"));
    EXPECT_EQ(fileBytes(path), "[Big]\r\nKey=" + big + "\r\nAfter=changed\r\n");
}

TEST_F(IniWriteTest, LongSectionNamesLoseThreeBytesFromTheLimitOn)
{
    const std::string name1020(1020, 's');
    inifiles ini(fileWith(QByteArray("[") + name1020.c_str() + "]\r\nk=v\r\n"), false);
    EXPECT_EQ(read(ini, name1020.c_str(), "k"), "v");
    EXPECT_EQ(read(ini, std::string(1022, 's').c_str(), "k"), "<none>");  // just inside: looked for whole
    EXPECT_EQ(read(ini, std::string(1023, 's').c_str(), "k"), "v");       // just past: cut to 1020 bytes
}

// One write into a file holding before: whether the key was there (true) or
// inserted (false), and the file's bytes after it.
TEST_F(IniWriteTest, OneWriteIntoAFile)
{
    const struct {
        const char* before;
        const char* section;
        const char* key;
        bool existed;
        const char* after;
    } cases[] = {
        // The matching line is replaced whole, with the key as the caller spells it.
        {"[A]\r\n  Key = old value \r\nnext=1\r\n", "A", "KEY", true, "[A]\r\nKEY=new\r\nnext=1\r\n"},
        // A last line without a break gets one before the new key.
        {"[S]\r\nA=1", "S", "B", false, "[S]\r\nA=1\r\nB=new\r\n"},
        // An insertion in the middle looks at the end of the whole file: no
        // CR LF there, so one goes in before the new line.
        {"[A]\r\nx=1\r\n[B]\r\ny=2", "A", "z", false, "[A]\r\nx=1\r\n\r\nz=new\r\n[B]\r\ny=2"},
        // With one there, the new line goes before the next section, after the blank line.
        {"[A]\r\nx=1\r\n\r\n[B]\r\ny=2\r\n", "A", "z", false, "[A]\r\nx=1\r\n\r\nz=new\r\n[B]\r\ny=2\r\n"},
        // A new section goes at the end, after a line break of its own if the file lacks one.
        {"", "S", "K", false, "\r\n[S]\r\nK=new\r\n"},
        {"[S]\r\nK=5\r\n", "T", "Name", false, "[S]\r\nK=5\r\n[T]\r\nName=new\r\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.before);
        const QByteArray path = fileWith(c.before);
        inifiles ini(path, false);
        EXPECT_EQ(ini.WriteString(c.section, c.key, "new"), c.existed);
        EXPECT_EQ(fileBytes(path), c.after);
        EXPECT_EQ(read(ini, c.section, c.key), "new");
    }
}

TEST_F(IniWriteTest, NumbersAndFlagsAreWrittenAsTheReadersReadThem)
{
    const QByteArray path = fileWith("");
    inifiles ini(path, false);
    ini.WriteInteger("S", "K", -5);
    ini.WriteBool("S", "B", true);
    EXPECT_EQ(fileBytes(path), "\r\n[S]\r\nK=-5\r\nB=1\r\n");
}

TEST_F(IniWriteTest, WrittenLinesAreCutAtTheLineLimit)
{
    const QByteArray path = fileWith("");
    inifiles ini(path, false);
    ini.WriteString("S", "K", std::string(2000, 'w').c_str());
    EXPECT_EQ(fileBytes(path), "\r\n[S]\r\nK=" + QByteArray(inifiles::kMaxWrittenLine - 2, 'w'));
}

TEST_F(IniWriteTest, CreateWritesDefaultsAsTheyAreRead)
{
    const QByteArray path = missingFile();
    {
        inifiles ini(path, true);
        EXPECT_TRUE(QFile::exists(QString::fromLocal8Bit(path)));
        EXPECT_EQ(ini.ReadInteger("Net", "Port", 8080), 8080);
        char value[32];
        EXPECT_EQ(ini.ReadString("Net", "Host", "example.org", value, sizeof value), 1);
    }
    EXPECT_EQ(fileBytes(path), "\r\n[Net]\r\nPort=8080\r\nHost=example.org\r\n");
    EXPECT_EQ(inifiles(path, true).ReadInteger("Net", "Port", 1), 8080);
}

TEST_F(IniWriteTest, WithoutCreateAMissingFileStaysMissingUntilAWrite)
{
    const QByteArray path = missingFile();
    inifiles ini(path, false);
    EXPECT_EQ(ini.ReadInteger("Net", "Port", 8080), 8080);
    EXPECT_FALSE(QFile::exists(QString::fromLocal8Bit(path)));
    ini.WriteInteger("Net", "Port", 1);
    EXPECT_EQ(fileBytes(path), "\r\n[Net]\r\nPort=1\r\n");
}

TEST_F(IniWriteTest, UnwritableFileKeepsChangesInMemoryAndAFolderIsNoFile)
{
    const QByteArray path = QFile::encodeName(dir.filePath("no/such/folder/x.ini"));
    inifiles ini(path, true);
    ini.WriteString("S", "K", "kept");
    EXPECT_EQ(read(ini, "S", "K"), "kept");
    EXPECT_FALSE(QFile::exists(QString::fromLocal8Bit(path)));
    inifiles folder(QFile::encodeName(dir.path()), false);
    EXPECT_EQ(read(folder, "S", "K"), "<none>");
}
