// The built library as a host loads it: what it exports, its SONAME, and the
// four entry points reached through dlopen/dlsym.
#include <set>
#include <string>

#include <QProcess>
#include <QStringList>
#include <gtest/gtest.h>

#include "LoadedLibrary.h"
#include "support/TestHost.h"

namespace {

QString runTool(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    EXPECT_TRUE(process.waitForFinished(60000)) << program.toStdString();
    EXPECT_EQ(0, process.exitCode()) << process.readAllStandardError().toStdString();
    return QString::fromLocal8Bit(process.readAllStandardOutput());
}

}  // namespace

TEST(LibraryExports, ExactlyTheFourEntryPoints)
{
    const QStringList lines =
        runTool("nm", {"-D", "--defined-only", DM_LIBRARY_PATH}).split('\n', Qt::SkipEmptyParts);
    std::set<std::string> exported;
    for (const QString& line : lines) {
        const QStringList fields = line.split(' ', Qt::SkipEmptyParts);
        ASSERT_EQ(3, fields.size()) << line.toStdString();
        exported.insert(fields[2].toStdString());
    }
    EXPECT_EQ((std::set<std::string>{"GetModule", "GetModuleInfo", "Initialize", "ReceiveMessage"}),
              exported);
}

TEST(LibraryExports, SonameIsVersionOne)
{
    EXPECT_TRUE(runTool("readelf", {"-d", DM_LIBRARY_PATH})
                    .contains(QStringLiteral("Library soname: [libDownloadModule.so.1]")));
    EXPECT_TRUE(QString(DM_LIBRARY_PATH).endsWith(QStringLiteral("libDownloadModule.so.1")));
}

TEST_F(LoadedLibrary, EntryPointsAnswerAsAHostExpects)
{
    // The record's bytes are checked in RecordBytesTest.cpp.
    auto getModuleInfo = symbol<GetModuleInfoFn>("GetModuleInfo");
    auto initialize = symbol<InitializeFn>("Initialize");
    auto getModule = symbol<GetModuleFn>("GetModule");
    auto receiveMessage = symbol<ReceiveMessageFn>("ReceiveMessage");
    ASSERT_TRUE(getModuleInfo && initialize && getModule && receiveMessage);
    EXPECT_EQ(0, getModuleInfo(nullptr));

    // The library's own module object, not the one this test links.
    EXPECT_NE(nullptr, getModule());
    EXPECT_NE(static_cast<void*>(getModule()), static_cast<void*>(GetModule()));

    int host = 0;
    initialize(&recordingHost, &recordingHost, &host, nullptr);
    EXPECT_TRUE(received().empty());  // Initialize only stores
    // Registration through these entry points is checked in RecordBytesTest.cpp.
    EXPECT_EQ(0, receiveMessage(&host, HostMsg::HostReady, 0, 0));
    initialize(nullptr, nullptr, nullptr, nullptr);
}
