// Version splitting and comparison, and local download paths.
#include <vector>

#include <gtest/gtest.h>

#include "UpdateTestSupport.h"
#include "update/UpdatePaths.h"
#include "update/VersionRules.h"

TEST(SplitVersion, ReadsThreePartsRepeatingTheLastOfShortVersions)
{
    const struct {
        const char* text;
        int major, minor, build;
    } cases[] = {{"1.2.3", 1, 2, 3},   {"10.20.30", 10, 20, 30}, {"5", 5, 5, 5},
                 {"1.2", 1, 2, 2},     {"1.2.3.4", 1, 2, 0},     {"", 0, 0, 0},
                 {"a.b.c", 0, 0, 0},   {".5", 0, 5, 5},          {"1..3", 1, 0, 3},
                 {"1.2.", 1, 2, 0},    {"1.x.3", 1, 0, 3}};
    for (const auto& c : cases) {
        const VersionParts parts = splitVersion(QString::fromLatin1(c.text));
        EXPECT_EQ(std::vector<int>({parts.major, parts.minor, parts.build}),
                  std::vector<int>({c.major, c.minor, c.build}))
            << '"' << c.text << '"';
    }
}

// A version is one number, parts weighted 10000, 100 and 1 in wrapping 32-bit
// arithmetic; the fourth value and the extra text never decide.
TEST(VersionComparison, ModulesNeedAStrictlyGreaterNumberConfigurationsForAutoTheSame)
{
    const struct {
        int major, minor, build;  // installed
        const char* offered;
        bool isNew, goodForAuto;
    } cases[] = {
        {1, 2, 3, "1.2.3", false, true},  // the tie
        {1, 2, 2, "1.2.3", true, true},   {1, 2, 4, "1.2.3", false, false},
        {0, 99, 99, "1.0.0", true, true}, {2, 0, 0, "1.99.99", false, false},
        // One number, not text and not part by part; 100 spills into the next part.
        {1, 9, 99, "1.10.0", true, true}, {1, 2, 9, "1.2.10", true, true},
        {1, 1, 0, "1.0.100", false, true}, {1, 0, 99, "1.0.100", true, true},
        {1, 2, 3, "1.1.103", false, true}, {1, 2, 3, "1.1.102", false, false},
        {1, 0, 0, "0.100.0", false, true},
        // 300000.0.0 wraps to a negative number, as a signed 32-bit sum does.
        {300000, 0, 0, "1.0.0", true, true},
        // Short versions repeat their last part.
        {2, 2, 1, "2", true, true},       {2, 2, 2, "2", false, true},
        {1, 2, 1, "1.2", true, true},     {1, 2, 2, "1.2", false, true},
    };
    for (const auto& c : cases) {
        const VersionParts offered = splitVersion(QString::fromLatin1(c.offered));
        for (int fourth : {0, -1, 999999}) {
            EXPECT_EQ(isNewVersionModule(c.major, c.minor, c.build, fourth, c.offered,
                                         fourth ? "99.99.99" : ""),
                      c.isNew)
                << c.major << '.' << c.minor << '.' << c.build << " < " << c.offered;
        }
        EXPECT_EQ(isGoodConfigForAuto(offered.major, offered.minor, offered.build,
                                      installedConfig("cfg", c.major, c.minor, c.build)),
                  c.goodForAuto)
            << c.major << '.' << c.minor << '.' << c.build << " <= " << c.offered;
    }
}

TEST(GetLocalPath, DownloadFolderAndTheLastComponentOfTheUrlPath)
{
    const QString dir = QStringLiteral("/var/dl");
    EXPECT_EQ(QStringList({getLocalPath(dir, "http://update.example/dir/file.gz?x=1&y=/z.gz#frag"),
                           getLocalPath(dir, "/Win32/modules/core.so.gz"), getLocalPath(dir, "plain.txt"),
                           getLocalPath(dir, "http://update.example/dir/")}),
              QStringList({"/var/dl/file.gz", "/var/dl/core.so.gz", "/var/dl/plain.txt", "/var/dl/"}));
}
