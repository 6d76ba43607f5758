// The framework's services to the rest of the module: host readiness (3004),
// events, interface lookup, folders and translation look-ups.
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <QCoreApplication>
#include <QDateTime>
#include <gtest/gtest.h>

#include "module/DateTime.h"
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

// The record of the first message with code, as the host received it.
template <class Record>
Record firstRecord(const TestHost& host, unsigned int code)
{
    Record record;
    std::memcpy(&record, host.withCode(code).at(0).record.constData(), sizeof record);
    return record;
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
        {"again current", {{"Russian", true}}, 0, "Russian"},
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
        const bool listed = c.languages.size() <= 1024;
        EXPECT_EQ(listed ? 2u : 0u, host.withCode(HostMsg::LanguageList).size()) << c.why;
    }
    EXPECT_GT(module()->getFont(font::ecCaption).pointSize(), module()->getFont(font::ecDefault).pointSize());
}

TEST(HostReady, SendsItsQuestionsInOrderAndReplacesDateFormatterAndSink)
{
    TestHost host;
    host.deliver(HostMsg::HostReady);
    // No languages: the list is asked for all the same.
    EXPECT_EQ((std::vector<unsigned int>{HostMsg::LanguageCount, HostMsg::LanguageList,
                                         HostMsg::GetDateFormatters, HostMsg::GetLogSink}),
              host.codes());
    Velmora::DateTime* first = module()->GetDateTime();
    ASSERT_NE(nullptr, first);
    const QDateTime when(QDate(2026, 3, 7), QTime(9, 5, 1), Qt::UTC);
    EXPECT_EQ(QStringLiteral("dt:07.03.2026"), first->toString(when, "dd.MM.yyyy"));
    EXPECT_EQ(QStringLiteral("t:86400:hh:1"), first->toString(86400L, "hh", true));

    host.provideFormatters = false;
    host.deliver(HostMsg::HostReady);
    ASSERT_NE(first, module()->GetDateTime());
    EXPECT_TRUE(module()->GetDateTime()->toString(when, "dd").isEmpty());
    EXPECT_TRUE(module()->GetDateTime()->toString(1L, "dd", false).isEmpty());

    // The module's log, which the rest of the code reaches through
    // LogHelper, now goes to this host's sink under the module's name.
    LogHelper::ShowLogInfo(logTypeMessage, logLevel2, QStringLiteral("hello"));
    ASSERT_EQ(1u, host.logLines.size());
    EXPECT_EQ(QStringLiteral("CDownloadModule"), host.logLines[0].source);
    EXPECT_EQ(0, host.logLines[0].type);
    EXPECT_EQ(2, host.logLines[0].level);
    EXPECT_EQ(QStringLiteral("hello"), host.logLines[0].text);
}

TEST(HostReady, AnExceptionIsLoggedWithItsMarkerAndPassedOn)
{
    TestHost host;
    host.deliver(HostMsg::HostReady);  // gives the log a sink
    host.throwOnCode = HostMsg::GetDateFormatters;
    EXPECT_THROW(host.deliver(HostMsg::HostReady), std::runtime_error);
    ASSERT_EQ(1u, host.logLines.size());
    EXPECT_EQ(1, host.logLines[0].type);
    EXPECT_EQ(5, host.logLines[0].level);
    EXPECT_EQ(QStringLiteral("Unknown throw in <CDownloadModule>|../Module.cpp|93"), host.logLines[0].text);
}

TEST(Events, CreateAndEmit)
{
    TestHost host;
    host.deliver(HostMsg::HostReady);
    void* handle = module()->CreateEvent(QString(300, QLatin1Char('e')));
    const auto created = firstRecord<coreEventCreate>(host, HostMsg::CreateEvent);
    EXPECT_EQ(QByteArray(255, 'e'), QByteArray(created.name, 255));
    EXPECT_EQ(reinterpret_cast<void*>(intptr_t(0x100)), handle);

    // A second creation under the same name keeps the first handle for emitting.
    module()->CreateEvent(QStringLiteral("tick"));
    module()->CreateEvent(QStringLiteral("tick"));
    VMEvent ev;
    std::memset(&ev, 0x11, sizeof ev);
    EXPECT_EQ(0, module()->EmitEvent(QStringLiteral("tick"), ev));
    const auto raised = host.withCode(HostMsg::RaiseEvent);
    ASSERT_EQ(1u, raised.size());
    EXPECT_EQ(0x101, raised[0].param1);
    EXPECT_EQ(reinterpret_cast<intptr_t>(&ev), raised[0].param2);
    EXPECT_EQ(reinterpret_cast<void*>(intptr_t(0x101)), value(ev.handle));
    EXPECT_STREQ("tick", ev.name);
    EXPECT_EQ(0x11111111, value(ev.word0));  // the caller's words are left alone

    const size_t before = host.messages.size();
    EXPECT_EQ(1, module()->EmitEvent(QStringLiteral("never"), ev));
    EXPECT_EQ(before, host.messages.size());
    ASSERT_EQ(1u, host.logLines.size());
    EXPECT_EQ(QStringLiteral("Can't emit event with name \"never\""), host.logLines[0].text);
    EXPECT_EQ(1, host.logLines[0].type);
    EXPECT_EQ(4, host.logLines[0].level);
}

TEST(Events, SubscriptionRecordsCarryTheRegistration)
{
    TestHost host;
    char program[] = "app";
    char* argv[] = {program};
    host.deliver(HostMsg::CommandLine, 1, reinterpret_cast<intptr_t>(argv));
    module()->SubscribeEvent(QStringLiteral("quotes"));
    const auto subscribe = firstRecord<coreEventSubscribe>(host, HostMsg::SubscribeEvent);
    EXPECT_STREQ("quotes", subscribe.name);
    EXPECT_EQ(0u, value(subscribe.zero));
    EXPECT_EQ(module()->registration(), value(subscribe.registration));
    EXPECT_EQ(static_cast<void*>(static_cast<CModule*>(module())), value(subscribe.module));
    EXPECT_EQ(-1, value(subscribe.minusOne));

    host.resultFor[HostMsg::UnsubscribeEvents] = 3;
    EXPECT_EQ(3, module()->UnSubscribeEvent());
    EXPECT_EQ(module()->registration(),
              value(firstRecord<coreEventUnsubscribe>(host, HostMsg::UnsubscribeEvents).registration));
}

TEST(Lookup, InterfaceFieldsFollowTheArgumentOrder)
{
    TestHost host;
    EXPECT_EQ(nullptr, module()->getInterface("Quotes", "qKey", "ACME"));
    const auto query = firstRecord<coreInterfaceRecord>(host, HostMsg::FindInterface);
    EXPECT_STREQ("Quotes", query.name);
    EXPECT_STREQ("qKey", query.key);
    EXPECT_STREQ("ACME", query.vendor);
    EXPECT_EQ(1, value(query.kind));
    EXPECT_EQ(host.mainWindow(), module()->getInterface("MAINWINDOW", "", "VELMORA"));
}

TEST(Folders, ByTypeFromTheHostOrTheApplicationFolder)
{
    TestHost host;
    host.folders[2] = QStringLiteral("/opt/terminal/config");
    host.folders[101] = QString(1500, QLatin1Char('d'));  // cut to the record's 1023 units
    EXPECT_EQ(QStringLiteral("/opt/terminal/config"), GetPathByFolderType(module(), vfConfiguration));
    EXPECT_EQ(QString(1023, QLatin1Char('d')), GetPathByFolderType(module(), vfDownload));
    EXPECT_EQ(QCoreApplication::applicationDirPath(), GetPathByFolderType(module(), vfConfigCopy));
    EXPECT_EQ(QCoreApplication::applicationDirPath(), GetPathByFolderType(nullptr, nullptr, vfConfiguration));
    EXPECT_EQ(2, value(firstRecord<coreFolder>(host, HostMsg::FolderByType).type));
}

TEST(Folders, UserDirAsksTheMainWindow)
{
    TestHost host;
    host.workFolder = QStringLiteral("/home/trader/work");
    EXPECT_EQ(QStringLiteral("/home/trader/work"), GetUserDir(module()));
    const auto asked = host.withCode(HostMsg::WorkFolder);
    ASSERT_EQ(1u, asked.size());
    EXPECT_EQ(host.mainWindow(), asked[0].target);
    host.resultFor[HostMsg::WorkFolder] = 1;
    EXPECT_EQ(QString(), GetUserDir(module()));
    EXPECT_EQ(QString(), GetUserDir(nullptr, nullptr));
}

TEST(Translation, UnknownKeysComeBackAsTheKey)
{
    EXPECT_EQ(QStringLiteral("C0030Propes"), module()->tr("C0030Propes"));
    EXPECT_EQ(QStringLiteral("MD0003"), module()->tr(QStringLiteral("MD0003")));
}

TEST(TimeZone, SetTimeTzMakesLocalTimeUtc)
{
    CModule::SetTimeTz();
    const std::time_t noon = 43200;
    std::tm local{};
    localtime_r(&noon, &local);
    EXPECT_EQ(12, local.tm_hour);
    EXPECT_STREQ("GST0", std::getenv("TZ"));
}
