// Version splitting and comparison, the automatic-mode rule, the current
// configuration and local download paths.
#include <vector>

#include <gtest/gtest.h>

#include "UpdateTestSupport.h"
#include "update/UpdatePaths.h"
#include "update/VersionRules.h"

namespace {

struct SplitCase {
    const char* label;
    const char* text;
    int major, minor, build;
};

class SplitVersion : public ::testing::TestWithParam<SplitCase> {};

}  // namespace

TEST_P(SplitVersion, ReadsThreeParts)
{
    const SplitCase& c = GetParam();
    const VersionParts parts = splitVersion(QString::fromLatin1(c.text));
    EXPECT_EQ(parts.major, c.major);
    EXPECT_EQ(parts.minor, c.minor);
    EXPECT_EQ(parts.build, c.build);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, SplitVersion,
    ::testing::Values(SplitCase{"ThreeParts", "1.2.3", 1, 2, 3},
                      SplitCase{"TwoDigitParts", "10.20.30", 10, 20, 30},
                      SplitCase{"NoDotRepeatsTheNumber", "5", 5, 5, 5},
                      SplitCase{"TwoPartsRepeatTheLast", "1.2", 1, 2, 2},
                      SplitCase{"FourPartsMakeTheLastInvalid", "1.2.3.4", 1, 2, 0},
                      SplitCase{"EmptyText", "", 0, 0, 0},
                      SplitCase{"NotNumbers", "a.b.c", 0, 0, 0},
                      SplitCase{"LeadingDot", ".5", 0, 5, 5},
                      SplitCase{"EmptyMiddle", "1..3", 1, 0, 3},
                      SplitCase{"TrailingDot", "1.2.", 1, 2, 0},
                      SplitCase{"InvalidMiddle", "1.x.3", 1, 0, 3}),
    [](const ::testing::TestParamInfo<SplitCase>& info) { return info.param.label; });

TEST(VersionNumber, WeighsPartsBy10000And100AndLetsLargePartsSpill)
{
    EXPECT_EQ(versionNumber(1, 2, 3), 10203);
    EXPECT_EQ(versionNumber(1, 10, 0), 11000);
    EXPECT_EQ(versionNumber(1, 0, 100), versionNumber(1, 1, 0));
    EXPECT_EQ(versionNumber(0, 100, 0), versionNumber(1, 0, 0));
    // Beyond 32 bits the sum wraps as a signed 32-bit sum does.
    EXPECT_EQ(versionNumber(300000, 0, 0), int32_t(3000000000u));
}

TEST(IsNewVersionModule, OnlyAStrictlyGreaterVersionIsNew)
{
    EXPECT_FALSE(isNewVersionModule(1, 2, 3, 0, "1.2.3", ""));
    EXPECT_TRUE(isNewVersionModule(1, 2, 2, 0, "1.2.3", ""));
    EXPECT_FALSE(isNewVersionModule(1, 2, 4, 0, "1.2.3", ""));
    EXPECT_TRUE(isNewVersionModule(0, 99, 99, 0, "1.0.0", ""));
    EXPECT_FALSE(isNewVersionModule(2, 0, 0, 0, "1.99.99", ""));
}

TEST(IsNewVersionModule, ComparesAsOneNumberNotAsText)
{
    EXPECT_TRUE(isNewVersionModule(1, 9, 99, 0, "1.10.0", ""));
    EXPECT_TRUE(isNewVersionModule(1, 2, 9, 0, "1.2.10", ""));
    // A build of 100 spills into the minor place.
    EXPECT_FALSE(isNewVersionModule(1, 1, 0, 0, "1.0.100", ""));
    EXPECT_TRUE(isNewVersionModule(1, 0, 99, 0, "1.0.100", ""));
}

TEST(IsNewVersionModule, ShortVersionsRepeatTheirLastPart)
{
    EXPECT_TRUE(isNewVersionModule(2, 2, 1, 0, "2", ""));
    EXPECT_FALSE(isNewVersionModule(2, 2, 2, 0, "2", ""));
    EXPECT_TRUE(isNewVersionModule(1, 2, 1, 0, "1.2", ""));
    EXPECT_FALSE(isNewVersionModule(1, 2, 2, 0, "1.2", ""));
}

TEST(IsNewVersionModule, FourthValueAndExtraTextDoNotDecide)
{
    for (int fourth : {0, 1, -1, 999999}) {
        for (const char* extra : {"", "5", "99.99.99", "junk"}) {
            EXPECT_FALSE(isNewVersionModule(1, 2, 3, fourth, "1.2.3", extra));
            EXPECT_TRUE(isNewVersionModule(1, 2, 2, fourth, "1.2.3", extra));
        }
    }
}

TEST(IsGoodConfigForAuto, SameOrNewerQualifies)
{
    const coreNameConfig installed = installedConfig("cfg", 1, 2, 3);
    EXPECT_TRUE(isGoodConfigForAuto(1, 2, 3, installed));
    EXPECT_TRUE(isGoodConfigForAuto(1, 2, 4, installed));
    EXPECT_TRUE(isGoodConfigForAuto(1, 3, 0, installed));
    EXPECT_FALSE(isGoodConfigForAuto(1, 2, 2, installed));
    EXPECT_FALSE(isGoodConfigForAuto(0, 99, 99, installed));
    // Compared as one number: 1.1.103 equals 1.2.3.
    EXPECT_TRUE(isGoodConfigForAuto(1, 1, 103, installed));
    EXPECT_FALSE(isGoodConfigForAuto(1, 1, 102, installed));
}

TEST(GetCurrentConfigurationIndex, FirstConfigurationMarkedOne)
{
    EXPECT_EQ(getCurrentConfigurationIndex(nullptr, 0), -1);
    std::vector<coreNameConfig> configs{installedConfig("a", 1, 0, 0),
                                        installedConfig("b", 1, 0, 0)};
    EXPECT_EQ(getCurrentConfigurationIndex(configs.data(), 2), -1);
    configs[0].current = 2;  // only 1 marks the configuration in use
    EXPECT_EQ(getCurrentConfigurationIndex(configs.data(), 2), -1);
    configs[1].current = 1;
    EXPECT_EQ(getCurrentConfigurationIndex(configs.data(), 2), 1);
    configs.push_back(installedConfig("c", 1, 0, 0, true));
    EXPECT_EQ(getCurrentConfigurationIndex(configs.data(), 3), 1);
    EXPECT_EQ(getCurrentConfigurationIndex(configs.data(), 1), -1);
}

TEST(GetLocalPath, DownloadFolderAndTheLastComponentOfTheUrlPath)
{
    const QString dir = QStringLiteral("/var/dl");
    EXPECT_EQ(getLocalPath(dir, "http://update.example/dir/file.gz?x=1&y=/z.gz#frag"),
              "/var/dl/file.gz");
    EXPECT_EQ(getLocalPath(dir, "/Win32/modules/core.so.gz"), "/var/dl/core.so.gz");
    EXPECT_EQ(getLocalPath(dir, "/dir/file.gz?version=2"), "/var/dl/file.gz");
    EXPECT_EQ(getLocalPath(dir, "plain.txt"), "/var/dl/plain.txt");
    EXPECT_EQ(getLocalPath(dir, "http://update.example/dir/"), "/var/dl/");
}
