// The framework's services to the rest of the module: host readiness (3004)
// and folders, against a recording test host.
#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

#include <QCoreApplication>
#include <QStringList>
#include <gtest/gtest.h>

#include "module/DownloadModule.h"
#include "module/HostFolders.h"
#include "platform/LogHelper.h"
#include "protocol/HostMessages.h"
#include "protocol/ModuleApi.h"
#include "support/TestHost.h"

namespace {

CDownloadModule* module()
{
    return GetModule<CDownloadModule>();
}

}  // namespace

// The first language marked current wins; without one, when the host cannot
// list its languages or reports more than 1024 of them, the fonts are English
// ones. 3117 is asked only for a count it believes, and an unchanged language
// keeps the font manager.
TEST(HostReady, FontsFollowTheHostsCurrentLanguage)
{
    auto lastOf = [](std::size_t count) {
        std::vector<std::pair<const char*, bool>> languages(count, {"English", false});
        languages.back() = {"German", true};
        return languages;
    };
    const struct {
        const char* why;
        std::vector<std::pair<const char*, bool>> languages;
        int listResult;
        const char* expected;
    } cases[] = {
        {"first current", {{"English", false}, {"Russian", true}, {"German", true}}, 0, "Russian"},
        {"list refused", {{"Russian", true}}, 1, "English"},
        {"none current", {{"Russian", false}}, 0, "English"},
        {"none to list", {}, 0, "English"},
        {"1024 believed", lastOf(1024), 0, "German"},
        {"1025 not believed", lastOf(1025), 0, "English"},
    };
    for (const auto& c : cases) {
        TestHost host;
        for (const auto& [name, current] : c.languages)
            TestHost::addLanguage(host.languages, name, current);
        host.resultFor[HostMsg::LanguageList] = c.listResult;
        EXPECT_EQ(0, host.deliver(HostMsg::HostReady));
        const CFontManager* manager = module()->getFontManager();
        ASSERT_NE(nullptr, manager);
        EXPECT_EQ(QString::fromLatin1(c.expected), manager->language()) << c.why;
        EXPECT_EQ(0, host.deliver(HostMsg::HostReady));
        EXPECT_EQ(manager, module()->getFontManager()) << c.why;
        // No languages is asked for all the same, with an empty array.
        EXPECT_EQ(c.languages.size() <= 1024 ? 2u : 0u, host.withCode(HostMsg::LanguageList).size()) << c.why;
    }
    EXPECT_GT(module()->getFont(font::ecCaption).pointSize(), module()->getFont(font::ecDefault).pointSize());
}

// An exception out of the host-ready handler is logged with its marker and
// passed on.
TEST(HostReady, SendsItsQuestionsInOrderLogsToTheHostsSinkAndLogsAnException)
{
    TestHost host;
    host.deliver(HostMsg::HostReady);
    EXPECT_EQ((std::vector<unsigned int>{HostMsg::LanguageCount, HostMsg::LanguageList,
                                         HostMsg::GetDateFormatters, HostMsg::GetLogSink}),
              host.codes());
    // The module's log, which the rest of the code reaches through
    // LogHelper, now goes to this host's sink under the module's name.
    LogHelper::ShowLogInfo(logTypeMessage, logLevel2, QStringLiteral("hello"));
    host.throwOnCode = HostMsg::GetDateFormatters;
    EXPECT_THROW(host.deliver(HostMsg::HostReady), std::runtime_error);
    EXPECT_EQ(QStringList({"CDownloadModule 0 2 hello",
                           "CDownloadModule 1 5 Unknown throw in <CDownloadModule>|../Module.cpp|93"}),
              host.logLines);
}

// What the reference host answers is in tests/hostprog; here the record and
// target asked, and what a refusal or a missing module gives.
TEST(Folders, ByTypeAndTheUserFolderOfTheMainWindow)
{
    TestHost host;
    host.folders[2] = QStringLiteral("/opt/terminal/config");
    host.workFolder = QStringLiteral("/home/trader/work");
    EXPECT_EQ(QStringLiteral("/opt/terminal/config"), GetPathByFolderType(module(), vfConfiguration));
    coreFolder asked;
    std::memcpy(&asked, host.withCode(HostMsg::FolderByType).at(0).record.constData(), sizeof asked);
    EXPECT_EQ(2, value(asked.type));
    EXPECT_EQ(QCoreApplication::applicationDirPath(), GetPathByFolderType(module(), vfDownload));
    EXPECT_EQ(QCoreApplication::applicationDirPath(), GetPathByFolderType(nullptr, nullptr, vfConfiguration));
    EXPECT_EQ(QStringLiteral("/home/trader/work"), GetUserDir(module()));
    EXPECT_EQ(host.mainWindow(), host.withCode(HostMsg::WorkFolder).at(0).target);
    host.resultFor[HostMsg::WorkFolder] = 1;
    EXPECT_EQ(QString(), GetUserDir(module()));
    EXPECT_EQ(QString(), GetUserDir(nullptr, nullptr));
}
