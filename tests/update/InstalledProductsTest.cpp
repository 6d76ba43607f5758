// The installed configurations, module tables and configuration paths as the
// host reports them through 3086, 3087, 3088 and 3209.
#include <gtest/gtest.h>

#include "UpdateTestSupport.h"
#include "update/InstalledProducts.h"

using Texts = std::vector<QByteArray>;

// A host that fills fewer than it counted leaves the rest zeroed (the
// reference host's answers are ReferenceHostTest's); an empty list is still
// asked for, an unbelievable count is not.
TEST(InstalledProducts, CountThenAZeroedArrayTheHostFillsWithinBelievableCounts)
{
    const struct {
        int32_t count;
        Texts configurations;
        int listRequests;
    } rows[] = {{3, {"Stock||2.1.0|0|3", "Bonds|second text|1.0.0|1|1", "||0.0.0|0|0"}, 1},
                {0, {}, 1},
                {CInstalledProducts::kMaxConfigurations + 1, {}, 0}};
    for (const auto& row : rows) {
        ProductsHost products;
        products.configs = {installedConfig("Stock", 2, 1, 0, false, 3, 11),
                            installedConfig("Bonds", 1, 0, 0, true, 1, 22)};
        copyToField(products.configs[1].secondName, QByteArray("second text"));
        products.reportedCount = row.count;
        EXPECT_EQ(describe(CInstalledProducts().configurations()), row.configurations) << row.count;
        EXPECT_EQ(products.configListRequests, row.listRequests) << row.count;
    }
    ProductsHost products;
    products.reportedCount = CInstalledProducts::kMaxConfigurations;
    EXPECT_EQ(CInstalledProducts().configurations().size(), std::size_t(CInstalledProducts::kMaxConfigurations));
    for (int32_t count : {0, -5, CInstalledProducts::kMaxModuleEntries + 1})
        EXPECT_TRUE(CInstalledProducts().moduleTable(installedConfig("S", 1, 0, 0, false, count, 1)).empty());
    ASSERT_EQ(products.tableRequests.size(), 1u);
    EXPECT_EQ(value(products.tableRequests[0].count), 0);

    // Without a host nothing is asked and nothing found.
    CInstalledProducts noHost(nullptr, nullptr);
    EXPECT_TRUE(noHost.configurations().empty());
    EXPECT_TRUE(noHost.moduleTable(installedConfig("S", 1, 0, 0, false, 2, 1)).empty());
    EXPECT_EQ(noHost.GetPathToConfigFile("Stock"), "");
}

// The name goes out in a 2303-byte block, cut to 255 bytes; the host's answer
// 1 means it has no path, any other answer gives the wide text it wrote.
TEST(PathToConfigFile, SendsTheNameInA2303ByteBlockAndReadsTheWideTextUnlessAnswered1)
{
    ProductsHost products;
    const QString stock = QStringLiteral("/home/u/.terminal/Stock/stock.cfg");
    products.configPaths["Stock"] = stock;
    for (const auto& [answer, path] : {std::pair<int, QString>{0, stock}, {1, ""}, {2, stock}}) {
        products.host.resultFor[HostMsg::PathToConfigFile] = answer;
        EXPECT_EQ(CInstalledProducts().GetPathToConfigFile("Stock"), path) << answer;
    }
    EXPECT_EQ(products.pathRequests.at(0), "Stock" + QByteArray(2298, '\0'));
    CInstalledProducts().GetPathToConfigFile(QString(300, 'n'));
    EXPECT_EQ(products.pathRequests.at(3).left(256), QByteArray(255, 'n') + '\0');
}
