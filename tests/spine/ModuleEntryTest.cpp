// The library as the host sees it at start: registration with 3007 and the
// host's own codes handled by the module object.
#include <cstring>
#include <vector>

#include <QDir>
#include <QTemporaryDir>
#include <QWidget>
#include <gtest/gtest.h>

#include "module/DownloadModule.h"
#include "protocol/DialogRecords.h"
#include "protocol/HostMessages.h"
#include "protocol/ModuleApi.h"
#include "support/TestHost.h"

// The record's name, vendor and key and the 51 texts are checked as the host
// reads them (tests/hostprog, tests/abi); here what the host controls: the
// kind is Initialize's last argument, and the module keeps what the host
// left in the record as its registration.
TEST(Registration, KindFromTheHostAndTheRegistrationItLeaves)
{
    int hostParam = 0;
    TestHost host(reinterpret_cast<void*>(intptr_t(42)));
    host.replaceRegistration = &hostParam;
    char program[] = "terminal";
    char* argv[] = {program, nullptr};
    EXPECT_EQ(0, host.deliver(HostMsg::CommandLine, 1, reinterpret_cast<intptr_t>(argv)));
    ASSERT_EQ(HostMsg::RegisterModule, host.messages.at(0).code);
    EXPECT_EQ(&host, host.messages[0].target);
    coreInterfaceRecord record;
    std::memcpy(&record, host.messages[0].record.constData(), sizeof record);
    EXPECT_EQ(42, value(record.kind));
    EXPECT_EQ(static_cast<void*>(GetModule()), value(record.object));
    EXPECT_EQ(static_cast<void*>(&hostParam), GetModule()->registration());
}

// Index 0 of the host's arguments is its program name and never looked at.
// A module never given callbacks reads them all the same, sends nothing and
// keeps itself as its registration.
TEST(Registration, OfflineSwitchFollowsTheHostsArguments)
{
    const struct {
        const char* name;
        std::vector<const char*> arguments;  // nullptr entries are passed as null
        int count;
        bool offline;
        bool callbacks = true;
    } cases[] = {
        {"SecondArgument", {"app", "/offline"}, 2, true},
        {"ProgramNameNeverLookedAt", {"/opt/OFFLINE/host", "-x"}, 2, false},
        {"InsideLongerArgument", {"app", "-x", "x/OffLine=1"}, 3, true},
        {"NullEntriesSkipped", {"app", nullptr, "/OFFLINE"}, 3, true},
        {"BeyondCountNotSeen", {"app", "-a", "/OFFLINE"}, 2, false},
        {"PrefixOnly", {"app", "/OFFLIN"}, 2, false},
        {"NoArguments", {}, 0, false},
        {"WithoutCallbacks", {"app", "/OFFLINE"}, 2, true, false},
    };
    for (const auto& c : cases) {
        std::vector<char*> argv;
        for (const char* argument : c.arguments)
            argv.push_back(const_cast<char*>(argument));  // read only: a write would fault on the literal
        TestHost host;
        CDownloadModule module("Velmora.Download module", 1, 2, 9);
        if (c.callbacks)
            module.InitializeWrap(&TestHost::send, &TestHost::post, &host, nullptr);
        void* target = c.callbacks ? &host : nullptr;
        EXPECT_EQ(0, module.ReceiveMessageWrap(target, HostMsg::CommandLine, c.count,
                                               reinterpret_cast<intptr_t>(argv.data())));
        EXPECT_EQ(0, module.ReceiveMessageWrap(target, HostMsg::HostReady, 0, 0)) << c.name;
        EXPECT_EQ(c.offline, module.isOffline()) << c.name;
        EXPECT_EQ(c.callbacks ? 1u : 0u, host.withCode(HostMsg::RegisterModule).size()) << c.name;
        EXPECT_EQ(static_cast<void*>(&module), module.registration()) << c.name;
    }
}

// Through the exported ReceiveMessage: global parameters need a record;
// codes the module does not know are answered 0. The dialog's codes (close,
// connection state, menu command) before any "open" find no dialog: they
// are answered 0 and make nothing, no dialog object and no folder.
TEST(ModuleObject, AnswersTheHostsOwnCodes)
{
    TestHost host;
    QTemporaryDir root;
    host.folders[101] = root.filePath(QStringLiteral("download"));
    host.folders[2] = root.filePath(QStringLiteral("config"));
    int anything = 0;
    mwiSetStateConnect state{0};
    mm_menu_item item{};
    EXPECT_EQ(1, host.deliver(HostMsg::ChangeGlobalParameters, 0));
    EXPECT_EQ(0, host.deliver(HostMsg::ChangeGlobalParameters, reinterpret_cast<intptr_t>(&anything)));
    EXPECT_EQ(0, host.deliver(9999, 1, 2));
    for (const auto& [code, record] : {std::pair<unsigned int, intptr_t>{HostMsg::CloseDialog, 0},
                                       {HostMsg::SetConnectState, reinterpret_cast<intptr_t>(&state)},
                                       {HostMsg::MenuCommand, reinterpret_cast<intptr_t>(&item)},
                                       {HostMsg::MenuCommand, 0}}) {
        SCOPED_TRACE(code);
        EXPECT_EQ(0, host.deliver(code, record));
    }
    EXPECT_TRUE(host.messages.empty());
    EXPECT_EQ(nullptr, GetModule<CDownloadModule>()->widget());
    EXPECT_TRUE(QDir(root.path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries).isEmpty());
}

// Good credentials, state and port through the reference host are in
// tests/hostprog; here the record's edges.
TEST(ModuleObject, ProxyDataIsAskedOfTheMainWindowAndReadWithinItsFields)
{
    TestHost host;
    pGloabalMainWindow = host.mainWindow();
    std::strcpy(host.proxy.user, "not base64!");
    // A password field filled to its last byte, without a terminator: 257
    // characters of which 256 form whole groups, decoding to 192 bytes.
    std::memset(host.proxy.password, 'Q', sizeof host.proxy.password);
    mwiProxyState state;
    std::memset(&state, 0x5A, sizeof state);
    GetModule<CDownloadModule>()->GetProxyData(state);
    pGloabalMainWindow = nullptr;

    ASSERT_EQ(1u, host.withCode(HostMsg::ProxySettings).size());
    EXPECT_EQ(host.mainWindow(), host.withCode(HostMsg::ProxySettings)[0].target);
    EXPECT_STREQ("", state.user);
    EXPECT_EQ(0, state.user[254]);  // the rest of the field is cleared, not left over
    EXPECT_EQ(192u, std::strlen(state.password));
}

// An id the host refused to give is not looked up.
TEST(ModuleObject, MainWindowIsFoundByTheIdTheHostReports)
{
    TestHost host;
    QWidget window;
    host.mainWindowId = intptr_t(window.winId());
    EXPECT_EQ(&window, GetModule<CDownloadModule>()->GetMainWindow());
    host.resultFor[HostMsg::MainWindowId] = 1;
    EXPECT_EQ(nullptr, GetModule<CDownloadModule>()->GetMainWindow());
}
