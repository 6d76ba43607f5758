// The configuration list as the update server publishes it and the manual
// and automatic rules for offering a configuration.
#include <vector>

#include <gtest/gtest.h>

#include "UpdateTestSupport.h"
#include "update/ConfigListParser.h"
#include "update/InstalledProducts.h"

namespace {

const QString kDataDir = QStringLiteral(DM_SOURCE_DIR "/tests/update/data/");

}  // namespace

TEST(ConfigLine, FieldsAndTheTitleWithItsCommas)
{
    dlModule out;
    ASSERT_TRUE(parseConfigLine(
        "Stock,2.1.0,/cfg/stock/moduleDesc.txt,/cfg/stock/desc.txt,Stock exchange, futures, options",
        out));
    // The name is also kept in auxPath; nothing else of the record is set.
    EXPECT_EQ(fields(out), "Stock|2.1.0|||/cfg/stock/moduleDesc.txt|/cfg/stock/desc.txt||Stock|"
                           "Stock exchange, futures, options||-1");
}

TEST(ConfigLine, NeedsFourCommas)
{
    dlModule out;
    EXPECT_FALSE(parseConfigLine("Stock,2.1.0,/m.txt,/d.txt", out));
    EXPECT_FALSE(parseConfigLine("", out));
    EXPECT_TRUE(parseConfigLine("Stock,2.1.0,/m.txt,/d.txt,", out));
    EXPECT_EQ(dlText(out.title), "");
}

TEST(ConfigLine, LongNameIsCutInBothPlaces)
{
    dlModule out;
    ASSERT_TRUE(parseConfigLine(QString(300, 'n') + ",1.0.0,/m,/d," + QString(300, 't'), out));
    const QByteArray name(254, 'n');
    EXPECT_EQ(fields(out), name + "|1.0.0|||/m|/d||" + name + '|' + QByteArray(254, 't') + "||-1");
}

TEST(ConfigList, StopsAtTheFirstLineWithFewerThanFourCommas)
{
    ProductsHost products;
    dlListModule list;
    parseConfigList(kDataDir + "configDesc-third-line-three-commas.txt", list, false,
                    CInstalledProducts());
    EXPECT_EQ(names(list), (std::vector<QByteArray>{"Stock", "Bonds"}));
    EXPECT_EQ(dlText(list.modules[0].title), "Stock exchange, futures, options");
}

TEST(ConfigList, AsksTheHostAfterReadingAndAppends)
{
    ProductsHost products;
    products.configs = {installedConfig("Stock", 2, 1, 0), installedConfig("Bonds", 0, 9, 0)};
    QTemporaryDir dir;
    dlListModule list;
    list.append(emptyDlModule());
    parseConfigList(writeListFile(dir, "configDesc.txt",
                                  "Stock,2.1.0,/s.txt,/sd.txt,Stock\nBonds,1.0.0,/b.txt,/bd.txt,Bonds\n"
                                  "Metals,0.1.0,/m.txt,/md.txt,Metals\n"),
                    list, false, CInstalledProducts());
    EXPECT_EQ(products.host.withCode(HostMsg::ConfigurationCount).size(), 1u);
    EXPECT_EQ(products.configListRequests, 1);
    EXPECT_EQ(names(list), (std::vector<QByteArray>{"", "Bonds", "Metals"}));

    // A list that cannot be read asks nothing and appends nothing.
    parseConfigList(dir.filePath("absent.txt"), list, true, CInstalledProducts());
    EXPECT_EQ(list.count, 3);
    EXPECT_EQ(products.configListRequests, 1);
}

TEST(ConfigOffer, ManualAndAutomaticRulesAndShortVersions)
{
    using Installed = std::vector<coreNameConfig>;
    const Installed stock210{installedConfig("Stock", 2, 1, 0)};
    const Installed stock200{installedConfig("Stock", 2, 0, 0)};
    const Installed current210{installedConfig("Stock", 2, 1, 0, true)};
    const Installed bonds{installedConfig("Bonds", 9, 9, 9, true)};
    // The first configuration of the name decides: the second, current and
    // older, would have let the equal version through by hand.
    const Installed firstOld{installedConfig("Stock", 1, 0, 0),
                             installedConfig("Stock", 0, 0, 0, true)};
    const Installed firstCurrent{firstOld[1], firstOld[0]};
    // "5" reads as 5.5.5 and "1.2" as 1.2.2.
    const Installed v555{installedConfig("Stock", 5, 5, 5)}, v554{installedConfig("Stock", 5, 5, 4)};
    const Installed v122{installedConfig("Stock", 1, 2, 2)}, v121{installedConfig("Stock", 1, 2, 1)};
    struct Case {
        const char* why;
        const Installed& installed;
        const char* name;
        const char* version;
        bool autoMode;
        bool offered;
    };
    const Installed none;
    const Case cases[] = {
        {"not installed", bonds, "Stock", "0.0.0", false, true},
        {"names compare byte for byte", bonds, "bonds", "1.0.0", false, true},
        {"nothing installed", none, "Stock", "1.0.0", false, true},
        {"auto: the same version again", stock210, "Stock", "2.1.0", true, true},
        {"auto: newer", stock210, "Stock", "2.1.1", true, true},
        {"auto: one number, 1.5.0 < 2.1.0", stock210, "Stock", "1.5.0", true, false},
        {"current by hand: the same version", current210, "Stock", "2.1.0", false, true},
        {"current by hand: one number, not part by part", current210, "Stock", "2.0.9", false, false},
        {"other by hand: the same version", stock200, "Stock", "2.0.0", false, false},
        {"other by hand: minor 5 > 0", stock200, "Stock", "1.5.0", false, true},
        {"other by hand: build 1 > 0", stock200, "Stock", "1.0.1", false, true},
        {"other by hand: major", stock200, "Stock", "3.0.0", false, true},
        {"other by hand: no part greater", stock200, "Stock", "1.0.0", false, false},
        {"first of the name decides", firstOld, "Stock", "1.0.0", false, false},
        {"first of the name decides, current", firstCurrent, "Stock", "1.0.0", false, true},
        {"dotless: equal", v555, "Stock", "5", false, false},
        {"dotless: newer build", v554, "Stock", "5", false, true},
        {"two parts: equal", v122, "Stock", "1.2", false, false},
        {"two parts: newer build", v121, "Stock", "1.2", false, true},
    };
    for (const Case& c : cases) {
        dlModule entry;
        ASSERT_TRUE(parseConfigLine(QString::fromLatin1(c.name) + "," + c.version + ",/m,/d,T", entry));
        EXPECT_EQ(isConfigOffered(entry, c.installed.data(), int(c.installed.size()), c.autoMode),
                  c.offered)
            << c.why;
    }
}
