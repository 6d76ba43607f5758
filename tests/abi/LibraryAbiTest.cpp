// The built library as a host loads it: what it exports, its SONAME, and the
// four entry points reached through dlopen/dlsym.
#include <dlfcn.h>

#include <cstring>
#include <set>
#include <string>
#include <vector>

#include <QProcess>
#include <QStringList>
#include <gtest/gtest.h>

#include "module/HostMessages.h"
#include "module/ModuleApi.h"
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

struct Received {
    unsigned int code;
    std::string key;  // for 3019
};
std::vector<Received> received;

int recordingHost(void*, unsigned int code, intptr_t param1, intptr_t)
{
    Received message{code, {}};
    if (code == HostMsg::RegisterTranslation)
        message.key = reinterpret_cast<const coreTranslate*>(param1)->key;
    received.push_back(message);
    return 0;
}

class LoadedLibrary : public ::testing::Test {
protected:
    void SetUp() override
    {
        handle_ = dlopen(DM_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(nullptr, handle_) << dlerror();
    }
    void TearDown() override
    {
        if (handle_)
            dlclose(handle_);
    }
    template <class F>
    F symbol(const char* name)
    {
        void* found = dlsym(handle_, name);
        EXPECT_NE(nullptr, found) << name;
        return reinterpret_cast<F>(found);
    }
    void* handle_ = nullptr;
};

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
    auto getModuleInfo = symbol<GetModuleInfoFn>("GetModuleInfo");
    auto initialize = symbol<InitializeFn>("Initialize");
    auto getModule = symbol<GetModuleFn>("GetModule");
    auto receiveMessage = symbol<ReceiveMessageFn>("ReceiveMessage");
    ASSERT_TRUE(getModuleInfo && initialize && getModule && receiveMessage);

    MODULE_INFO info;
    std::memset(&info, 0xEE, sizeof info);
    EXPECT_EQ(0, getModuleInfo(&info));
    EXPECT_STREQ("Velmora.Download module", info.name);
    EXPECT_STREQ("Update module", info.description);
    EXPECT_EQ(1u, value(info.numberFirst));
    EXPECT_EQ(9u, value(info.numberThird));
    EXPECT_EQ(57u, value(info.constant57));
    EXPECT_EQ(0, getModuleInfo(nullptr));

    // The library's own module object, not the one this test links.
    EXPECT_NE(nullptr, getModule());
    EXPECT_NE(static_cast<void*>(getModule()), static_cast<void*>(GetModule()));

    received.clear();
    int host = 0;
    initialize(&recordingHost, &recordingHost, &host, nullptr);
    EXPECT_TRUE(received.empty());  // Initialize only stores
    char program[] = "host";
    char* argv[] = {program};
    EXPECT_EQ(0, receiveMessage(&host, HostMsg::CommandLine, 1, reinterpret_cast<intptr_t>(argv)));
    ASSERT_EQ(52u, received.size());
    EXPECT_EQ(unsigned(HostMsg::RegisterModule), received[0].code);
    EXPECT_EQ("C0007Cancel", received[1].key);
    EXPECT_EQ("M0177", received.back().key);
    EXPECT_EQ(0, receiveMessage(&host, HostMsg::HostReady, 0, 0));
    initialize(nullptr, nullptr, nullptr, nullptr);
}
