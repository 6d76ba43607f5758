// What the module tells the updater: program path, key, command line, the
// folder a file goes to and the bytes of each request in the segment.
#include <cstdlib>
#include <cstring>
#include <set>

#include <QByteArray>
#include <gtest/gtest.h>

#include "net/Base64.h"
#include "update/UpdaterProtocol.h"
#include "updater/UpdaterOptions.h"

namespace {

// The segment as the updater sees it: bytes at fixed offsets.
class RawSegment {
public:
    RawSegment() : bytes(kUpdateSegmentSize, char(0xAA)) {}
    umUpdateFile& record() { return *reinterpret_cast<umUpdateFile*>(bytes.data()); }
    qint32 wordAt(int offset) const
    {
        qint32 word;
        std::memcpy(&word, bytes.constData() + offset, sizeof word);
        return word;
    }
    QString textAt(int offset, int units) const
    {
        return QString::fromUtf16(reinterpret_cast<const char16_t*>(bytes.constData() + offset), units);
    }
    bool zeroFrom(int offset, int size) const { return bytes.mid(offset, size) == QByteArray(size, '\0'); }

    QByteArray bytes;
};

}  // namespace

TEST(UpdaterProgram, FixedPathUnlessTheEnvironmentNamesAnother)
{
    const bool wasSet = qEnvironmentVariableIsSet(kUpdaterEnvironmentVariable);
    const QByteArray saved = qgetenv(kUpdaterEnvironmentVariable);
    qunsetenv(kUpdaterEnvironmentVariable);
    EXPECT_EQ(QString("/usr/local/bin/updater"), GetPathToUpdaterProgram());
    qputenv(kUpdaterEnvironmentVariable, "");
    EXPECT_EQ(QString("/usr/local/bin/updater"), GetPathToUpdaterProgram());
    qputenv(kUpdaterEnvironmentVariable, "/opt/test/updater");
    EXPECT_EQ(QString("/opt/test/updater"), GetPathToUpdaterProgram());
    if (wasSet)
        qputenv(kUpdaterEnvironmentVariable, saved);
    else
        qunsetenv(kUpdaterEnvironmentVariable);
}

TEST(UpdaterCommandLine, KeyAndQuotedBase64BackupFolder)
{
    EXPECT_EQ(QString("org.velmora.sharedmemory-1763733302"), updaterSegmentKey(1763733302));
    EXPECT_EQ(QString("org.velmora.sharedmemory-0"), updaterSegmentKey(0));

    const QStringList arguments = updaterArguments("/home/trader/.velmora/download/Backup", "org.velmora.sharedmemory-5");
    ASSERT_EQ(3, arguments.size());
    EXPECT_EQ(QString("-u"), arguments[0]);
    EXPECT_EQ(QString("\"L2hvbWUvdHJhZGVyLy52ZWxtb3JhL2Rvd25sb2FkL0JhY2t1cA==\""), arguments[1]);
    EXPECT_EQ(QString("org.velmora.sharedmemory-5"), arguments[2]);
}

TEST(UpdaterCommandLine, TheUpdaterReadsBackWhatTheModuleWrites)
{
    for (const QString& folder : {QString("/tmp/b"), QString("/tmp/with blank/and \"quote\""), QString(300, 'x')}) {
        UpdaterOptions options;
        QString error;
        ASSERT_TRUE(parseUpdaterOptions(updaterArguments(folder, "k-1"), &options, &error)) << qPrintable(error);
        EXPECT_EQ(folder, options.backupFolder);
        EXPECT_EQ(QString("k-1"), options.key);
    }
    // Without the quotes (a shell in between would have removed them).
    UpdaterOptions options;
    QString error;
    ASSERT_TRUE(parseUpdaterOptions({"-u", "L3RtcC9i", "k"}, &options, &error));
    EXPECT_EQ(QString("/tmp/b"), options.backupFolder);
}

TEST(UpdaterCommandLine, TheUpdaterRefusesOtherCommandLines)
{
    const QList<QStringList> bad = {
        {},
        {"-u", "\"L3RtcC9i\""},
        {"-x", "\"L3RtcC9i\"", "k"},
        {"-u", "\"not base64!\"", "k"},
        {"-u", "\"\"", "k"},
        {"-u", "\"L3RtcC9i\"", ""},
        {"-u", "\"L3RtcC9i\"", "k", "extra"},
    };
    for (const QStringList& arguments : bad) {
        UpdaterOptions options;
        QString error;
        EXPECT_FALSE(parseUpdaterOptions(arguments, &options, &error)) << qPrintable(arguments.join(' '));
        EXPECT_FALSE(error.isEmpty());
    }
}

TEST(InstallFolder, HostFolderTypesAndTheDefaultFolderForTheRest)
{
    std::set<int> hostTypes = {0, 1, 3, 4, 5, 6, 7, 8, 9, 10, 11, 20, 21, 22, 50, 51, 52, 100, 101, 102, 103, 157};
    for (int type = -5; type <= 300; ++type) {
        const int expected = hostTypes.count(type) ? type : 150;
        EXPECT_EQ(expected, installFolderType(type)) << "type " << type;
    }
}

TEST(InstallFolder, TypeTextReadsAsANumberButZeroOnlyWhenWrittenSo)
{
    struct Case {
        const char* text;
        bool accepted;
        int type;
    };
    const Case cases[] = {
        {"0", true, 0},  {"1", true, 1},   {"157", true, 157}, {"12", true, 12},  {" 7", true, 7},
        {"3abc", true, 3}, {"", false, 0}, {"abc", false, 0},  {"00", false, 0}, {"0 ", false, 0},
        {"-0", false, 0},
    };
    for (const Case& c : cases) {
        int type = -99;
        EXPECT_EQ(c.accepted, parseInstallType(c.text, &type)) << '"' << c.text << '"';
        EXPECT_EQ(c.type, type) << '"' << c.text << '"';
    }
}

TEST(SegmentRequest, InstallRequestWritesBothPathsAndClearsEverythingElse)
{
    RawSegment segment;
    writeInstallRequest(segment.record(), "/dl/quotes.so", "/opt/velmora/modules");
    EXPECT_EQ(QString("/dl/quotes.so"), segment.textAt(0, 13));
    EXPECT_TRUE(segment.zeroFrom(26, 2048 - 26));
    EXPECT_EQ(QString("/opt/velmora/modules"), segment.textAt(2048, 20));
    EXPECT_TRUE(segment.zeroFrom(2048 + 40, 2048 - 40));
    EXPECT_EQ(0, segment.wordAt(4096));  // done: pending
    EXPECT_EQ(0, segment.wordAt(4100));
    EXPECT_EQ(0, segment.wordAt(4104));
    EXPECT_EQ(0, segment.wordAt(4108));
    EXPECT_EQ(QString("/dl/quotes.so"), segmentPath(segment.record().source));
}

TEST(SegmentRequest, ConfigurationCopySetsItsFlagAndFinishedStandsAlone)
{
    RawSegment segment;
    writeConfigCopyRequest(segment.record(), "/cfg/Main.ini", "/cfg/copy/Config");
    EXPECT_EQ(QString("/cfg/Main.ini"), segment.textAt(0, 13));
    EXPECT_EQ(QString("/cfg/copy/Config"), segment.textAt(2048, 16));
    EXPECT_EQ(0, segment.wordAt(4096));
    EXPECT_EQ(0, segment.wordAt(4104));
    EXPECT_EQ(1, segment.wordAt(4108));

    writeFinished(segment.record());
    EXPECT_TRUE(segment.zeroFrom(0, 4104));
    EXPECT_EQ(1, segment.wordAt(4104));
    EXPECT_EQ(0, segment.wordAt(4108));
}

TEST(SegmentRequest, PathsAreCutAtTheFieldWithoutTouchingTheNextField)
{
    RawSegment segment;
    const QString longSource = QString(1023, 's') + "TAIL";
    writeInstallRequest(segment.record(), longSource, "/d");
    EXPECT_EQ(longSource.left(1024), segment.textAt(0, 1024));
    EXPECT_EQ(QString("/d"), segment.textAt(2048, 2));
    EXPECT_EQ(longSource.left(1024), segmentPath(segment.record().source));

    // Exactly the field's size fills it with no terminator; the reader stops
    // at the field's end.
    writeInstallRequest(segment.record(), "/s", QString(1024, 'd'));
    EXPECT_EQ(QString(1024, 'd'), segmentPath(segment.record().destination));
    EXPECT_EQ(0, segment.wordAt(4096));
}
