// The configuration list as the update server publishes it and the manual
// and automatic rules for offering a configuration.
#include <vector>

#include <gtest/gtest.h>

#include "UpdateTestSupport.h"
#include "update/ConfigListParser.h"
#include "update/InstalledProducts.h"

namespace {

const QString kDataDir = QStringLiteral(DM_SOURCE_DIR "/tests/update/data/");

bool offered(const char* version, const std::vector<coreNameConfig>& installed, bool autoMode,
             const char* name = "Stock")
{
    dlModule entry;
    const QString line = QString::fromLatin1(name) + "," + version + ",/m.txt,/d.txt,Title";
    EXPECT_TRUE(parseConfigLine(line, entry));
    return isConfigOffered(entry, installed.data(), int(installed.size()), autoMode);
}

}  // namespace

TEST(ConfigLine, FieldsAndTheTitleWithItsCommas)
{
    dlModule out;
    ASSERT_TRUE(parseConfigLine(
        "Stock,2.1.0,/cfg/stock/moduleDesc.txt,/cfg/stock/desc.txt,Stock exchange, futures, options",
        out));
    EXPECT_EQ(dlText(out.name), "Stock");
    EXPECT_EQ(dlText(out.auxPath), "Stock");
    EXPECT_EQ(dlText(out.version), "2.1.0");
    EXPECT_EQ(dlText(out.serverPath), "/cfg/stock/moduleDesc.txt");
    EXPECT_EQ(dlText(out.descPath), "/cfg/stock/desc.txt");
    EXPECT_EQ(dlText(out.title), "Stock exchange, futures, options");
    EXPECT_EQ(dlText(out.versionExtra), "");
    EXPECT_EQ(dlText(out.type), "");
    EXPECT_EQ(dlText(out.localPath), "");
    EXPECT_EQ(dlText(out.sizeText), "");
    EXPECT_EQ(out.state, -1);
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
    EXPECT_EQ(dlText(out.name), QByteArray(254, 'n'));
    EXPECT_EQ(dlText(out.auxPath), QByteArray(254, 'n'));
    EXPECT_EQ(dlText(out.version), "1.0.0");
    EXPECT_EQ(dlText(out.title), QByteArray(254, 't'));
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
}

TEST(ConfigList, MissingFileAsksNothingAndAppendsNothing)
{
    ProductsHost products;
    QTemporaryDir dir;
    dlListModule list;
    parseConfigList(dir.filePath("absent.txt"), list, true, CInstalledProducts());
    EXPECT_EQ(list.count, 0);
    EXPECT_TRUE(products.host.withCode(HostMsg::ConfigurationCount).empty());
}

TEST(ConfigOffer, NotInstalledIsAlwaysOffered)
{
    const std::vector<coreNameConfig> installed{installedConfig("Bonds", 9, 9, 9, true)};
    EXPECT_TRUE(offered("0.0.0", installed, false));
    EXPECT_TRUE(offered("0.0.0", installed, true));
    EXPECT_TRUE(offered("1.0.0", installed, false, "bonds"));
    EXPECT_TRUE(offered("1.0.0", {}, false));
}

TEST(ConfigOffer, AutomaticModeOffersTheSameVersionAgain)
{
    const std::vector<coreNameConfig> installed{installedConfig("Stock", 2, 1, 0)};
    EXPECT_TRUE(offered("2.1.0", installed, true));
    EXPECT_TRUE(offered("2.1.1", installed, true));
    EXPECT_FALSE(offered("2.0.9", installed, true));
    // One number: 1.5.0 is older than 2.1.0 even though 5 > 1.
    EXPECT_FALSE(offered("1.5.0", installed, true));
}

TEST(ConfigOffer, CurrentConfigurationInManualModeFollowsTheAutomaticRule)
{
    const std::vector<coreNameConfig> installed{installedConfig("Stock", 2, 1, 0, true)};
    EXPECT_TRUE(offered("2.1.0", installed, false));
    EXPECT_FALSE(offered("2.0.9", installed, false));
    EXPECT_FALSE(offered("1.5.0", installed, false));
}

TEST(ConfigOffer, OtherConfigurationInManualModeComparesEachPartOnItsOwn)
{
    const std::vector<coreNameConfig> installed{installedConfig("Stock", 2, 0, 0)};
    EXPECT_FALSE(offered("2.0.0", installed, false)) << "the same version";
    EXPECT_TRUE(offered("1.5.0", installed, false)) << "minor 5 > 0 though older as a number";
    EXPECT_TRUE(offered("1.0.1", installed, false)) << "build 1 > 0";
    EXPECT_TRUE(offered("3.0.0", installed, false));
    EXPECT_FALSE(offered("1.0.0", installed, false));

    const std::vector<coreNameConfig> later{installedConfig("Stock", 1, 5, 3)};
    EXPECT_FALSE(offered("1.5.3", later, false));
    EXPECT_FALSE(offered("1.4.2", later, false));
    EXPECT_TRUE(offered("1.4.4", later, false));
    EXPECT_TRUE(offered("0.6.0", later, false));
}

TEST(ConfigOffer, ShortVersionsRepeatTheirLastPart)
{
    EXPECT_FALSE(offered("5", {installedConfig("Stock", 5, 5, 5)}, false));
    EXPECT_TRUE(offered("5", {installedConfig("Stock", 5, 5, 4)}, false));
    EXPECT_FALSE(offered("1.2", {installedConfig("Stock", 1, 2, 2)}, false));
    EXPECT_TRUE(offered("1.2", {installedConfig("Stock", 1, 2, 1)}, false));
}

TEST(ConfigOffer, FirstInstalledConfigurationOfTheNameDecides)
{
    // The first is not current, so the equal version is not offered by hand;
    // the second (current, older) would have let it through.
    std::vector<coreNameConfig> installed{installedConfig("Stock", 1, 0, 0),
                                          installedConfig("Stock", 0, 0, 0, true)};
    EXPECT_FALSE(offered("1.0.0", installed, false));
    std::swap(installed[0], installed[1]);
    EXPECT_TRUE(offered("1.0.0", installed, false));
}
