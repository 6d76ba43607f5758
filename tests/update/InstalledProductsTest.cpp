// The installed configurations, module tables and configuration paths as the
// host reports them through 3086, 3087, 3088 and 3209.
#include <gtest/gtest.h>

#include "UpdateTestSupport.h"
#include "update/InstalledProducts.h"

TEST(InstalledConfigurations, CountThenAZeroedArrayTheHostFills)
{
    ProductsHost products;
    products.configs = {installedConfig("Stock", 2, 1, 0, false, 3, 11),
                        installedConfig("Bonds", 1, 0, 0, true, 1, 22)};
    copyToField(products.configs[1].secondName, QByteArray("second text"));
    const std::vector<coreNameConfig> configs = CInstalledProducts().configurations();

    EXPECT_EQ(products.host.codes(),
              (std::vector<unsigned int>{HostMsg::ConfigurationCount, HostMsg::ConfigurationList}));
    ASSERT_EQ(configs.size(), 2u);
    EXPECT_EQ(std::memcmp(configs.data(), products.configs.data(), 2 * sizeof(coreNameConfig)), 0);
    EXPECT_EQ(fieldBytes(configs[1].secondName), "second text");
}

TEST(InstalledConfigurations, HostFillingFewerLeavesZeroedEntries)
{
    ProductsHost products;
    products.configs = {installedConfig("Stock", 2, 1, 0)};
    products.reportedCount = 3;
    const std::vector<coreNameConfig> configs = CInstalledProducts().configurations();
    ASSERT_EQ(configs.size(), 3u);
    EXPECT_EQ(fieldBytes(configs[0].name), "Stock");
    coreNameConfig zero;
    std::memset(&zero, 0, sizeof zero);
    EXPECT_EQ(std::memcmp(&configs[2], &zero, sizeof zero), 0);
}

TEST(InstalledConfigurations, NoneEmptyOrUnbelievableCountsAskNoFurther)
{
    for (int32_t count : {0, -1, CInstalledProducts::kMaxConfigurations + 1}) {
        ProductsHost products;
        products.reportedCount = count;
        EXPECT_TRUE(CInstalledProducts().configurations().empty()) << count;
        EXPECT_EQ(products.configListRequests, 0) << count;
    }
    ProductsHost products;
    products.reportedCount = CInstalledProducts::kMaxConfigurations;
    EXPECT_EQ(CInstalledProducts().configurations().size(),
              std::size_t(CInstalledProducts::kMaxConfigurations));

    EXPECT_TRUE(CInstalledProducts(nullptr, nullptr).configurations().empty());
}

TEST(InstalledModuleTable, AsksForTheConfigurationsTableByIdAndCount)
{
    ProductsHost products;
    products.tables[11] = {installedModule("a.so", 1, 2, 3, 4), installedModule("b.so", 5, 6, 7, 8)};
    const coreNameConfig config = installedConfig("Stock", 2, 1, 0, false, 3, 11);
    const std::vector<coreModuleEntry> table = CInstalledProducts().moduleTable(config);

    ASSERT_EQ(products.tableRequests.size(), 1u);
    EXPECT_EQ(value(products.tableRequests[0].tableId), 11);
    EXPECT_EQ(value(products.tableRequests[0].count), 3);
    const auto sent = products.host.withCode(HostMsg::ModuleTable);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].param2, 0);
    ASSERT_EQ(table.size(), 3u);
    EXPECT_EQ(fieldBytes(table[1].name), "b.so");
    EXPECT_EQ(value(table[1].major), 5);
    EXPECT_EQ(value(table[1].minor), 6);
    EXPECT_EQ(value(table[1].build), 7);
    EXPECT_EQ(value(table[1].fourth), 8);
    EXPECT_EQ(fieldBytes(table[2].name), "") << "not filled by the host: zero";
}

TEST(InstalledModuleTable, EmptyOrUnbelievableTablesAreNotAskedFor)
{
    ProductsHost products;
    for (int32_t count : {0, -5, CInstalledProducts::kMaxModuleEntries + 1})
        EXPECT_TRUE(CInstalledProducts().moduleTable(installedConfig("S", 1, 0, 0, false, count, 1)).empty());
    EXPECT_TRUE(products.tableRequests.empty());
    EXPECT_TRUE(CInstalledProducts(nullptr, nullptr)
                    .moduleTable(installedConfig("S", 1, 0, 0, false, 2, 1)).empty());
}

TEST(PathToConfigFile, SendsTheNameInA2303ByteBlockAndReadsTheWideText)
{
    ProductsHost products;
    products.configPaths["Stock"] = QStringLiteral("/home/u/.terminal/Stock/stock.cfg");
    EXPECT_EQ(CInstalledProducts().GetPathToConfigFile("Stock"), "/home/u/.terminal/Stock/stock.cfg");
    ASSERT_EQ(products.pathRequests.size(), 1u);
    const QByteArray block = products.pathRequests[0];
    EXPECT_EQ(block.size(), 2303);
    EXPECT_EQ(block.left(6), QByteArray("Stock\0", 6));
    EXPECT_EQ(block.mid(5), QByteArray(2298, '\0'));
}

TEST(PathToConfigFile, AnswerOneMeansNoPath)
{
    ProductsHost products;
    products.configPaths["Stock"] = QStringLiteral("/path");
    products.host.resultFor[HostMsg::PathToConfigFile] = 1;
    EXPECT_EQ(CInstalledProducts().GetPathToConfigFile("Stock"), "");
    // Any other answer still yields what the host wrote.
    products.host.resultFor[HostMsg::PathToConfigFile] = 2;
    EXPECT_EQ(CInstalledProducts().GetPathToConfigFile("Stock"), "/path");
    EXPECT_EQ(CInstalledProducts(nullptr, nullptr).GetPathToConfigFile("Stock"), "");
}

TEST(PathToConfigFile, LongNameIsCutTo255Bytes)
{
    ProductsHost products;
    CInstalledProducts().GetPathToConfigFile(QString(300, 'n'));
    ASSERT_EQ(products.pathRequests.size(), 1u);
    EXPECT_EQ(products.pathRequests[0].left(256), QByteArray(255, 'n') + '\0');
}
