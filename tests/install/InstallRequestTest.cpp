// What the module tells the updater: program path, key, command line, a
// file's folder and a path longer than its segment field.
#include <cstring>
#include <vector>

#include <QByteArray>
#include <gtest/gtest.h>

#include "module/HostFolders.h"
#include "support/TestHost.h"
#include "update/InstallRequests.h"
#include "update/UpdaterProtocol.h"
#include "updater/UpdaterOptions.h"

TEST(UpdaterProgram, FixedPathUnlessTheEnvironmentNamesAnother)
{
    const QByteArray saved = qgetenv(kUpdaterEnvironmentVariable);
    for (const char* value : {"", "/opt/test/updater", static_cast<const char*>(nullptr)}) {
        value ? qputenv(kUpdaterEnvironmentVariable, value) : qunsetenv(kUpdaterEnvironmentVariable);
        EXPECT_EQ(QString(value && *value ? value : "/usr/local/bin/updater"), GetPathToUpdaterProgram());
    }
    if (!saved.isNull())
        qputenv(kUpdaterEnvironmentVariable, saved);
}

// The updater reads back the key and quoted base64 backup folder the module
// writes, and the folder without its quotes, as a shell in between leaves it.
TEST(UpdaterCommandLine, TheUpdaterReadsBackWhatTheModuleWrites)
{
    UpdaterOptions options;
    QString error;
    for (const QString& folder : {QString("/tmp/b"), QString("/tmp/with blank/and \"quote\""), QString(300, 'x')}) {
        ASSERT_TRUE(parseUpdaterOptions(updaterArguments(folder, "k-1"), &options, &error)) << qPrintable(error);
        EXPECT_EQ(folder, options.backupFolder);
        EXPECT_EQ(QString("k-1"), options.key);
    }
    ASSERT_TRUE(parseUpdaterOptions({"-u", "L3RtcC9i", "k"}, &options, &error));
    EXPECT_EQ(QString("/tmp/b"), options.backupFolder);
    EXPECT_EQ(QString("org.velmora.sharedmemory-1763733302"), updaterSegmentKey(1763733302));
    EXPECT_EQ(QStringList({"-u", "\"L2hvbWUvdHJhZGVyLy52ZWxtb3JhL2Rvd25sb2FkL0JhY2t1cA==\"", "k-5"}),
              updaterArguments("/home/trader/.velmora/download/Backup", "k-5"));
}

// The byte layout is tests/abi/RecordBytesTest.cpp's; here a path longer
// than its field is cut there without touching the next field, and one that
// fills its field is read back without a terminator.
TEST(SegmentRequest, PathsAreCutAtTheFieldWithoutTouchingTheNextField)
{
    umUpdateFile segment;
    std::memset(&segment, 0xAA, sizeof segment);
    const QString longSource = QString(1023, 's') + "TAIL";
    writeInstallRequest(segment, longSource, "/d");
    EXPECT_EQ(longSource.left(1024), segmentPath(segment.source));
    EXPECT_EQ(QString("/d"), segmentPath(segment.destination));
    EXPECT_EQ(std::vector<int>({0, 0, 0, 0}),
              std::vector<int>({segment.done, segment.error, segment.finished, segment.copyConfiguration}));

    writeInstallRequest(segment, "/s", QString(1024, 'd'));
    EXPECT_EQ(QString(1024, 'd'), segmentPath(segment.destination));
}

// The type text reads as a number, but zero only when written so; a type the
// host has no folder type for goes to the default folder (150), asked of the
// host (3128). A configuration file is left to the caller; a type that is not
// a number, or a folder the host does not have, refuses the record.
TEST(InstallRouting, AFileGoesToTheHostsFolderOfItsResolvedType)
{
    TestHost host;
    for (int type : {0, 7, 150, 157})
        host.folders[type] = QString("/host/folder%1").arg(type);
    host.folders[1] = QString();
    const auto folderOfType = [](int type) { return GetPathByFolderType(&TestHost::send, nullptr, VM_FOLDERS(type)); };
    // A path that fills the field without a terminator is read within it.
    const QByteArray fullPath = "/dl/" + QByteArray(251, 'm');
    const struct {
        const char* type;
        InstallRoute route;
        int askedType;  // of the host; -1: none asked
        QString destination;
    } cases[] = {{"157", InstallAsFile, 157, "/host/folder157"}, {"0", InstallAsFile, 0, "/host/folder0"},
                 {"12abc", InstallAsFile, 150, "/host/folder150"}, {"2", InstallAsConfiguration, -1, "untouched"},
                 {" 7", InstallAsFile, 7, "/host/folder7"},      {"1", InstallRefused, 1, "untouched"},
                 {"00", InstallRefused, -1, "untouched"},         {"0 ", InstallRefused, -1, "untouched"},
                 {"-0", InstallRefused, -1, "untouched"},         {"", InstallRefused, -1, "untouched"},
                 {"abc", InstallRefused, -1, "untouched"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.type);
        dlModule record = emptyDlModule();
        setDlText(record.type, c.type);
        std::memcpy(record.localPath, fullPath.constData(), kDlTextSize);
        UpdaterRequest request{"untouched", "untouched", true};
        const std::size_t asked = host.withCode(3128).size();
        EXPECT_EQ(c.route, routeInstallRequest(record, folderOfType, &request));
        EXPECT_EQ(c.destination, request.destination);
        EXPECT_EQ(c.route == InstallAsFile ? QString::fromLatin1(fullPath) : QString("untouched"), request.source);
        EXPECT_EQ(c.route != InstallAsFile, request.copyConfiguration);
        const auto folders = host.withCode(3128);  // -2: asked more than once
        EXPECT_EQ(c.askedType, folders.size() == asked ? -1 : folders.size() > asked + 1 ? -2
                  : value(reinterpret_cast<const coreFolder*>(folders.back().record.constData())->type));
    }
}
