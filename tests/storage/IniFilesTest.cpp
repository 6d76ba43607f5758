// The INI reader and writer against files written by hand and files it
// writes itself.
#include <string>

#include <QByteArray>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "StorageFiles.h"
#include "storage/IniFiles.h"

namespace {

QByteArray dataPath(const char* name)
{
    return QFile::encodeName(dataFile(name));
}

std::string read(inifiles& ini, const char* section, const char* key, const char* def = "<none>")
{
    char value[2048];
    ini.ReadString(section, key, def, value, sizeof value);
    return value;
}

class IniWriteTest : public ::testing::Test {
protected:
    // A file holding bytes in a fresh temporary folder.
    QByteArray fileWith(const QByteArray& bytes)
    {
        const QString path = dir.filePath("test.ini");
        writeFile(path, bytes);
        return QFile::encodeName(path);
    }
    QByteArray missingFile() const { return QFile::encodeName(dir.filePath("missing.ini")); }

    QTemporaryDir dir;
};

}  // namespace

// Files written by hand, each with one oddity: what the reader finds in them
// and what it must not find ("<none>": the default comes back).
TEST(IniRead, FilesWrittenByHand)
{
    struct Case {
        const char* file;
        const char* section;
        const char* key;
        const char* expected;
    };
    const Case cases[] = {
        // CR LF, a blank line between sections, the last section at the end.
        {"ini-last-section-at-end-of-file.ini", "Server", "URL", "http://example.org/path"},
        {"ini-last-section-at-end-of-file.ini", "Address", "path", "value1"},
        {"ini-last-section-at-end-of-file.ini", "Address", "case", "Keep Me"},  // values keep their case
        {"ini-last-section-at-end-of-file.ini", "Tail", "Last", "end"},
        // A section ends at the next header: its keys are not found in others.
        {"ini-last-section-at-end-of-file.ini", "Server", "PATH", "<none>"},
        {"ini-last-section-at-end-of-file.ini", "Address", "Last", "<none>"},
        {"ini-last-section-at-end-of-file.ini", "address", "PATH", "<none>"},  // section names keep their case
        {"ini-last-section-at-end-of-file.ini", "Missing", "URL", "<none>"},
        {"ini-lf-only-line-ends.ini", "Server", "URL", "http://lf.example"},
        {"ini-lf-only-line-ends.ini", "Server", "Timeout", "45"},
        {"ini-lf-only-line-ends.ini", "Server", "x", "<none>"},
        {"ini-lf-only-line-ends.ini", "Other", "x", "1"},
        {"ini-no-final-line-break.ini", "Server", "URL", "http://nobreak.example"},
        {"ini-no-final-line-break.ini", "Server", "Timeout", "12"},
        // Spaces around keys and values are trimmed; inner spaces and tabs stay.
        {"ini-spaces-around-equals.ini", "Address", "path", "value1"},
        {"ini-spaces-around-equals.ini", "Address", " PATH ", "value1"},
        {"ini-spaces-around-equals.ini", "Address", "inner key", "a b c"},
        {"ini-spaces-around-equals.ini", "Address", "InnerKey", "<none>"},
        {"ini-spaces-around-equals.ini", "Address", "Tabbed", "<none>"},
        {"ini-spaces-around-equals.ini", "Address", "\tTabbed", "1"},
        {"ini-spaces-around-equals.ini", "Address", "Empty", ""},
        {"ini-spaces-around-equals.ini", "Address", "", "no key"},
        // Of two sections with one name, the first wins.
        {"ini-duplicate-sections.ini", "Server", "URL", "first"},
        {"ini-duplicate-sections.ini", "Server", "OnlySecond", "<none>"},
        // CR-only line ends make the file one line: only its first value is read.
        {"ini-cr-only-line-ends.ini", "Server", "URL", "http://cr.example"},
        {"ini-cr-only-line-ends.ini", "Server", "Timeout", "<none>"},
        // A NUL byte ends the line it is in; the next line is read.
        {"ini-nul-byte.ini", "Server", "URL", "before"},
        {"ini-nul-byte.ini", "Server", "Timeout", "5"},
        {"ini-binary-garbage.ini", "Server", "URL", "after-garbage"},
        {"ini-binary-garbage.ini", "Other", "URL", "<none>"},
    };
    for (const Case& c : cases) {
        inifiles ini(dataPath(c.file), false);
        EXPECT_EQ(read(ini, c.section, c.key), c.expected) << c.file << " [" << c.section << "] " << c.key;
    }
}

TEST(IniRead, TypedReaders)
{
    // ReadString's return codes and bounds are held against a model of the
    // format in StorageRandomTest.cpp.
    inifiles ini(dataPath("ini-last-section-at-end-of-file.ini"), false);
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
    inifiles ini(dataPath("ini-last-section-at-end-of-file.ini"), false);
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
    const std::string name1022(1022, 's');
    const std::string name1023(1023, 's');
    inifiles ini(fileWith(QByteArray("[") + name1020.c_str() + "]\r\nk=v\r\n"), false);
    EXPECT_EQ(read(ini, name1020.c_str(), "k"), "v");
    EXPECT_EQ(read(ini, name1022.c_str(), "k"), "<none>");  // just inside: looked for whole
    EXPECT_EQ(read(ini, name1023.c_str(), "k"), "v");       // just past: cut to 1020 bytes
}

TEST_F(IniWriteTest, WritingIntoAnEmptyFile)
{
    const QByteArray path = fileWith("");
    inifiles ini(path, false);
    EXPECT_FALSE(ini.WriteInteger("S", "K", 5));
    EXPECT_EQ(fileBytes(path), "\r\n[S]\r\nK=5\r\n");
    EXPECT_FALSE(ini.WriteBool("S", "B", true));
    EXPECT_FALSE(ini.WriteString("T", "Name", "text"));
    EXPECT_EQ(fileBytes(path), "\r\n[S]\r\nK=5\r\nB=1\r\n[T]\r\nName=text\r\n");
}

// One write into a file holding before: whether the key was there (true) or
// inserted (false), and the file's bytes after it.
TEST_F(IniWriteTest, OneWriteIntoAFile)
{
    struct Case {
        const char* before;
        const char* section;
        const char* key;
        bool existed;
        const char* after;
    };
    const Case cases[] = {
        // The matching line is replaced whole, with the key as the caller spells it.
        {"[A]\r\n  Key = old value \r\nnext=1\r\n", "A", "KEY", true, "[A]\r\nKEY=new\r\nnext=1\r\n"},
        // A last line without a break gets one before the new key.
        {"[S]\r\nA=1", "S", "B", false, "[S]\r\nA=1\r\nB=new\r\n"},
        // An insertion in the middle looks at the end of the whole file: no
        // CR LF there, so one goes in before the new line.
        {"[A]\r\nx=1\r\n[B]\r\ny=2", "A", "z", false, "[A]\r\nx=1\r\n\r\nz=new\r\n[B]\r\ny=2"},
        // With one there, the new line goes before the next section, after the blank line.
        {"[A]\r\nx=1\r\n\r\n[B]\r\ny=2\r\n", "A", "z", false, "[A]\r\nx=1\r\n\r\nz=new\r\n[B]\r\ny=2\r\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.before);
        const QByteArray path = fileWith(c.before);
        inifiles ini(path, false);
        EXPECT_EQ(ini.WriteString(c.section, c.key, "new"), c.existed);
        EXPECT_EQ(fileBytes(path), c.after);
        EXPECT_EQ(read(ini, c.section, c.key), "new");
    }
}

TEST_F(IniWriteTest, WrittenLinesAreCutAtTheLineLimit)
{
    const QByteArray path = fileWith("");
    inifiles ini(path, false);
    const std::string longValue(2000, 'w');
    ini.WriteString("S", "K", longValue.c_str());
    const QByteArray expectedLine = "K=" + QByteArray(inifiles::kMaxWrittenLine - 2, 'w');
    EXPECT_EQ(fileBytes(path), "\r\n[S]\r\n" + expectedLine);
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
    inifiles again(path, true);
    EXPECT_EQ(again.ReadInteger("Net", "Port", 1), 8080);
}

TEST_F(IniWriteTest, WithoutCreateAMissingFileStaysMissing)
{
    const QByteArray path = missingFile();
    inifiles ini(path, false);
    EXPECT_EQ(ini.ReadInteger("Net", "Port", 8080), 8080);
    EXPECT_FALSE(QFile::exists(QString::fromLocal8Bit(path)));
    ini.WriteInteger("Net", "Port", 1);  // a write does create it
    EXPECT_EQ(fileBytes(path), "\r\n[Net]\r\nPort=1\r\n");
}

TEST_F(IniWriteTest, UnwritableFileKeepsChangesInMemory)
{
    const QByteArray path = QFile::encodeName(dir.filePath("no/such/folder/x.ini"));
    inifiles ini(path, true);
    ini.WriteString("S", "K", "kept");
    EXPECT_EQ(read(ini, "S", "K"), "kept");
    EXPECT_FALSE(QFile::exists(QString::fromLocal8Bit(path)));
}

TEST_F(IniWriteTest, AFolderIsNotReadAsAFile)
{
    inifiles ini(QFile::encodeName(dir.path()), false);
    EXPECT_EQ(read(ini, "S", "K"), "<none>");
}
