// What the host reads before it loads anything: its command line and the
// JSON profile.
#include <vector>

#include <gtest/gtest.h>

#include "host/app/HostOptions.h"
#include "host/app/HostProfile.h"

namespace {

// "name|type=folder ...|work folder|language(*: current) ...|proxy|online"
QString summary(const HostProfile& p)
{
    QStringList folders, languages;
    for (const auto& folder : p.folders())
        folders << QString::number(folder.first) + '=' + folder.second;
    for (const HostLanguage& language : p.languages())
        languages << language.name + (language.current ? "*" : "");
    const HostProxy& x = p.proxy();
    return QStringList{p.name(), folders.join(' '), p.workFolder(), languages.join(' '),
                       QStringLiteral("%1 %2:%3 %4/%5").arg(x.state).arg(x.host).arg(x.port).arg(x.user,
                                                                                                 x.password),
                       p.online() ? "online" : "offline"}
        .join('|');
}

TEST(HostProfileTest, ReadsEveryFieldResolvesRelativePathsAndDefaultsTheRest)
{
    HostProfile profile;
    ASSERT_TRUE(profile.parse(R"({"name": "Sample", "workFolder": "user", "online": false,
        "folders": {"2": "cfg", "101": "../shared/./dl", "150": "/opt/terminal/modules"},
        "languages": [{"name": "English"}, {"name": "Deutsch", "current": true}],
        "proxy": {"state": 2, "host": "px", "port": 8080, "user": "u", "password": "p"},
        "configurations": [{"name": "left for a later host"}]})", QStringLiteral("/base/profile")))
        << qPrintable(profile.errorString());
    EXPECT_EQ(summary(profile), "Sample|2=/base/profile/cfg 101=/base/shared/dl 150=/opt/terminal/modules|"
                                "/base/profile/user|English Deutsch*|2 px:8080 u/p|offline");
    ASSERT_TRUE(profile.parse("{}", QStringLiteral("/base")));
    EXPECT_EQ(summary(profile), "||||0 :0 /|online");
}

// Every refusal names what is wrong, and nothing of a half-read profile
// (the folders are read first) survives it.
TEST(HostProfileTest, RefusesABrokenProfileNamingTheFault)
{
    const std::pair<const char*, const char*> cases[] = {
        {R"({"folders": {"2": "a"})", "at offset"},
        {R"([{"name": "x"}])", "must be a JSON object"},
        {R"({"folders": {"2": "a", "cfg": "b"}})", "folder type \"cfg\""},
        {R"({"folders": {"2": "a", "101": 5}})", "folder 101"},
        {R"({"folders": {"2": "a", "101": ""}})", "folder 101"},
        {R"({"folders": {"2": "a"}, "languages": [{"name": "English"}, {}]})", "language 1"},
        {R"({"languages": [{"name": "E", "current": 1}]})", "\"current\""},
        {R"({"folders": {"2": "a"}, "proxy": {"port": 65536}})", "\"port\""},
        {R"({"proxy": {"port": 80.5}})", "\"port\""},
        {R"({"folders": {"2": "a"}, "workFolder": []})", "\"workFolder\""},
        {R"({"online": 0})", "\"online\""},
        {R"({"folders": {"2": "a"}, "installedConfigurations": {}})", "must be an array"},
        {R"({"installedConfigurations": [{"name": "S", "version": "3.3"}]})", "installed configuration 0: \"version\""},
        {R"({"installedConfigurations": [{"version": "3.3.8"}]})", "\"name\""},
        {R"({"installedConfigurations": [{"name": "S", "version": "1.0.0", "current": 1}]})", "\"current\""},
        {R"({"installedConfigurations": [{"name": "S", "version": "1.0.0",
            "modules": [{"name": "a.so", "version": "x"}]}]})", "module 0: \"version\""},
        {R"({"installedConfigurations": [{"name": "S", "version": "1.0.0",
            "modules": [{"name": "a.so", "version": "1.0.0", "fourth": 1.5}]}]})", "\"fourth\""},
    };
    for (const auto& [json, error] : cases) {
        HostProfile profile;
        EXPECT_FALSE(profile.parse(json, QStringLiteral("/base"))) << json;
        EXPECT_TRUE(profile.errorString().contains(QString::fromUtf8(error)))
            << json << ": " << qPrintable(profile.errorString());
        EXPECT_TRUE(profile.folders().empty()) << json;
    }
}

// Options end at the profile, or after "--"; everything after the profile is
// the module's. One object parses every row, so nothing of the row before
// may remain.
TEST(HostOptionsTest, OptionsEndAtTheProfileAndTimeLimitsAreWholePositiveSeconds)
{
    // "library|log|headless|profile|script|script time limit|proxy test|module arguments",
    // or the error message.
    const std::pair<std::vector<const char*>, const char*> cases[] = {
        {{"--library=/lib/a.so", "--log", "/tmp/l", "--headless", "p.json", "--library", "/OFFLINE", "--"},
         "/lib/a.so|/tmp/l|1|p.json||300|0|--library /OFFLINE --"},
        {{"--", "-odd.json", "x"}, "||0|-odd.json||300|0|x"},
        {{"--headless", "p.json", "--script", "s.txt"}, "||1|p.json||300|0|--script s.txt"},
        {{"--script", "-", "--script-timeout=7", "p.json"}, "||0|p.json|-|7|0|"},
        {{"--proxy-test", "12", "p.json"}, "||0|p.json||300|12|"},
        {{"--script-timeout=0", "p.json"}, "--script-timeout needs a whole number of seconds"},
        {{"--script-timeout=-3", "p.json"}, "--script-timeout needs a whole number of seconds"},
        {{"--proxy-test=0", "p.json"}, "--proxy-test needs a whole number of seconds"},
        {{"--verbose", "p.json"}, "unknown option --verbose"},
        {{"--headless"}, "no profile given"},
        {{"--log"}, "--log needs a value"},
        {{"--library=", "p.json"}, "--library needs a value"},
    };
    HostOptions options;
    for (const auto& [given, expected] : cases) {
        std::vector<const char*> arguments = given;
        arguments.insert(arguments.begin(), "module-host");
        const bool parsed = options.parse(int(arguments.size()), arguments.data());
        QString outcome = options.errorString();
        if (parsed) {
            QStringList moduleArguments;
            for (const QByteArray& argument : options.moduleArguments())
                moduleArguments << QString::fromLocal8Bit(argument);
            outcome = QStringList{options.libraryPath(), options.logPath(), QString::number(options.headless()),
                                  options.profilePath(), options.scriptPath(), QString::number(options.scriptTimeout()),
                                  QString::number(options.proxyTestSeconds()), moduleArguments.join(' ')}
                          .join('|');
        }
        EXPECT_EQ(outcome, QString::fromLatin1(expected)) << arguments[1];
    }
}

}  // namespace
