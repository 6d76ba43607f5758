// What the host reads before it loads anything: its command line and the
// JSON profile.
#include <ostream>
#include <vector>

#include <gtest/gtest.h>

#include "host/app/HostOptions.h"
#include "host/app/HostProfile.h"

namespace {

TEST(HostProfileTest, ReadsEveryFieldAndResolvesRelativePaths)
{
    HostProfile profile;
    ASSERT_TRUE(profile.parse(R"({
        "name": "Sample",
        "folders": {"2": "cfg", "101": "../shared/./dl", "150": "/opt/terminal/modules"},
        "workFolder": "user",
        "languages": [{"name": "English"}, {"name": "Deutsch", "current": true}],
        "proxy": {"state": 2, "host": "px", "port": 8080, "user": "u", "password": "p"},
        "online": false,
        "configurations": [{"name": "left for a later host"}]
    })", QStringLiteral("/base/profile")))
        << qPrintable(profile.errorString());

    EXPECT_EQ(profile.name(), QStringLiteral("Sample"));
    EXPECT_EQ(profile.folder(2), QStringLiteral("/base/profile/cfg"));
    EXPECT_EQ(profile.folder(101), QStringLiteral("/base/shared/dl"));
    EXPECT_EQ(profile.folder(150), QStringLiteral("/opt/terminal/modules"));
    EXPECT_TRUE(profile.folder(151).isNull());
    EXPECT_EQ(profile.workFolder(), QStringLiteral("/base/profile/user"));
    ASSERT_EQ(profile.languages().size(), 2);
    EXPECT_FALSE(profile.languages()[0].current);
    EXPECT_EQ(profile.languages()[1].name, QStringLiteral("Deutsch"));
    EXPECT_TRUE(profile.languages()[1].current);
    EXPECT_EQ(profile.proxy().state, 2);
    EXPECT_EQ(profile.proxy().host, QStringLiteral("px"));
    EXPECT_EQ(profile.proxy().port, 8080);
    EXPECT_EQ(profile.proxy().user, QStringLiteral("u"));
    EXPECT_EQ(profile.proxy().password, QStringLiteral("p"));
    EXPECT_FALSE(profile.online());
}

TEST(HostProfileTest, AnEmptyObjectIsAProfileWithoutAnything)
{
    HostProfile profile;
    ASSERT_TRUE(profile.parse("{}", QStringLiteral("/base")));
    EXPECT_TRUE(profile.folders().empty());
    EXPECT_TRUE(profile.workFolder().isEmpty());
    EXPECT_TRUE(profile.languages().isEmpty());
    EXPECT_EQ(profile.proxy().port, 0);
    EXPECT_TRUE(profile.online());
}

struct BrokenProfile {
    const char* name;
    const char* json;
    const char* error;  // a part of the message that names what is wrong
};

void PrintTo(const BrokenProfile& profile, std::ostream* out)
{
    *out << profile.name;
}

class BrokenProfileTest : public ::testing::TestWithParam<BrokenProfile> {};

TEST_P(BrokenProfileTest, IsRefusedWithAMessageNamingTheFault)
{
    HostProfile profile;
    EXPECT_FALSE(profile.parse(GetParam().json, QStringLiteral("/base")));
    EXPECT_TRUE(profile.errorString().contains(QString::fromUtf8(GetParam().error)))
        << qPrintable(profile.errorString());
    // Nothing of a half-read profile survives the failure.
    EXPECT_TRUE(profile.folders().empty());
}

INSTANTIATE_TEST_SUITE_P(
    Profiles, BrokenProfileTest,
    ::testing::Values(
        BrokenProfile{"TruncatedJson", R"({"folders": {"2": "a"})", "at offset"},
        BrokenProfile{"TopLevelArray", R"([{"name": "x"}])", "must be a JSON object"},
        BrokenProfile{"FolderTypeNotANumber", R"({"folders": {"2": "a", "cfg": "b"}})",
                      "folder type \"cfg\""},
        BrokenProfile{"FolderPathNotAString", R"({"folders": {"2": "a", "101": 5}})",
                      "folder 101"},
        BrokenProfile{"FolderPathEmpty", R"({"folders": {"2": "a", "101": ""}})", "folder 101"},
        BrokenProfile{"LanguageWithoutName",
                      R"({"folders": {"2": "a"}, "languages": [{"name": "English"}, {}]})",
                      "language 1"},
        BrokenProfile{"CurrentNotABoolean",
                      R"({"folders": {"2": "a"}, "languages": [{"name": "E", "current": 1}]})",
                      "\"current\""},
        BrokenProfile{"PortTooLarge", R"({"folders": {"2": "a"}, "proxy": {"port": 65536}})",
                      "\"port\""},
        BrokenProfile{"PortNotWhole", R"({"folders": {"2": "a"}, "proxy": {"port": 80.5}})",
                      "\"port\""},
        BrokenProfile{"WorkFolderNotAString", R"({"folders": {"2": "a"}, "workFolder": []})",
                      "\"workFolder\""},
        BrokenProfile{"OnlineNotABoolean", R"({"folders": {"2": "a"}, "online": 0})", "\"online\""}),
    [](const ::testing::TestParamInfo<BrokenProfile>& info) { return info.param.name; });

bool parseOptions(HostOptions& options, std::vector<const char*> arguments)
{
    arguments.insert(arguments.begin(), "module-host");
    return options.parse(int(arguments.size()), arguments.data());
}

TEST(HostOptionsTest, OptionsEndAtTheProfile)
{
    HostOptions options;
    ASSERT_TRUE(parseOptions(options, {"--library=/lib/a.so", "--log", "/tmp/l", "--headless",
                                       "p.json", "--library", "/OFFLINE", "--"}));
    EXPECT_EQ(options.libraryPath(), QStringLiteral("/lib/a.so"));
    EXPECT_EQ(options.logPath(), QStringLiteral("/tmp/l"));
    EXPECT_TRUE(options.headless());
    EXPECT_EQ(options.profilePath(), QStringLiteral("p.json"));
    EXPECT_EQ(options.moduleArguments(),
              (std::vector<QByteArray>{"--library", "/OFFLINE", "--"}));

    // "--" lets a profile whose name starts with a dash through.
    ASSERT_TRUE(parseOptions(options, {"--", "-odd.json", "x"}));
    EXPECT_EQ(options.profilePath(), QStringLiteral("-odd.json"));
    EXPECT_FALSE(options.headless());
    EXPECT_EQ(options.moduleArguments(), std::vector<QByteArray>{"x"});
}

TEST(HostOptionsTest, ScriptAndProxyTestTimeLimits)
{
    HostOptions options;
    ASSERT_TRUE(parseOptions(options, {"--headless", "p.json", "--script", "s.txt"}));
    // After the profile it is the module's.
    EXPECT_TRUE(options.scriptPath().isEmpty());
    EXPECT_EQ(options.scriptTimeout(), 300);

    ASSERT_TRUE(parseOptions(options, {"--script", "-", "--script-timeout=7", "p.json"}));
    EXPECT_EQ(options.scriptPath(), QStringLiteral("-"));
    EXPECT_EQ(options.scriptTimeout(), 7);

    EXPECT_EQ(options.proxyTestSeconds(), 0);

    ASSERT_TRUE(parseOptions(options, {"--proxy-test", "12", "p.json"}));
    EXPECT_EQ(options.proxyTestSeconds(), 12);
    EXPECT_EQ(options.profilePath(), QStringLiteral("p.json"));

    for (const char* limit : {"--script-timeout=0", "--script-timeout=soon", "--script-timeout=-3",
                              "--proxy-test=0", "--proxy-test=x"}) {
        EXPECT_FALSE(parseOptions(options, {limit, "p.json"})) << limit;
        const QByteArray option = QByteArray(limit).left(QByteArray(limit).indexOf('='));
        EXPECT_TRUE(options.errorString().startsWith(QString::fromLatin1(option))) << limit;
    }
}

TEST(HostOptionsTest, RefusesWhatItCannotUse)
{
    HostOptions options;
    EXPECT_FALSE(parseOptions(options, {"--verbose", "p.json"}));
    EXPECT_TRUE(options.errorString().contains(QStringLiteral("--verbose")));
    EXPECT_FALSE(parseOptions(options, {"--headless"}));
    EXPECT_TRUE(options.errorString().contains(QStringLiteral("no profile")));
    EXPECT_FALSE(parseOptions(options, {"--log"}));
    EXPECT_FALSE(parseOptions(options, {"--library=", "p.json"}));
    EXPECT_TRUE(options.errorString().contains(QStringLiteral("--library")));
}

}  // namespace
