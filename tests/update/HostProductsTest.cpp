// The reference host's installed configurations and module tables, asked for
// by the module's own queries and parsers through the host's real bridge.
#include <memory>

#include <QDir>
#include <gtest/gtest.h>

#include "UpdateTestSupport.h"
#include "host/app/HostBridge.h"
#include "host/app/HostProfile.h"
#include "host/app/HostWindow.h"
#include "module/ModuleApi.h"
#include "update/InstalledProducts.h"
#include "update/ModuleListParser.h"

namespace {

const char kProfile[] = R"({
    "folders": {"2": "run/config", "101": "run/download"},
    "installedConfigurations": [
        {"name": "Stock", "version": "3.3.8", "secondName": "Stock exchange",
         "configFile": "run/config/stock/terminal.cfg",
         "modules": [{"name": "core.so", "version": "3.3.8", "fourth": 77},
                     {"name": "charts.so", "version": "1.2.0"}]},
        {"name": "Bonds", "version": "1.0.12", "current": true,
         "modules": [{"name": "core.so", "version": "3.4.0"}]}
    ]
})";

class HostProducts : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(dir.isValid()); }
    void TearDown() override { ::Initialize(nullptr, nullptr, nullptr, nullptr); }

    void start(const char* json)
    {
        bridge.reset();
        ASSERT_TRUE(profile.parse(json, dir.path())) << qPrintable(profile.errorString());
        bridge.reset(new HostBridge(profile, &window));
        ::Initialize(&HostBridge::send, &HostBridge::post, bridge->hostObject(), nullptr);
    }

    QString parseError(const char* json)
    {
        HostProfile broken;
        EXPECT_FALSE(broken.parse(json, dir.path()));
        return broken.errorString();
    }

    QTemporaryDir dir;
    HostProfile profile;
    HostWindow window;
    std::unique_ptr<HostBridge> bridge;
};

}  // namespace

TEST_F(HostProducts, ConfigurationsFromTheProfile)
{
    start(kProfile);
    const std::vector<coreNameConfig> configs = CInstalledProducts().configurations();
    ASSERT_EQ(configs.size(), 2u);
    const coreNameConfig stock = configs[0];
    const coreNameConfig bonds = configs[1];
    EXPECT_EQ(fieldBytes(stock.name), "Stock");
    EXPECT_EQ(fieldBytes(stock.secondName), "Stock exchange");
    EXPECT_EQ(value(stock.major), 3);
    EXPECT_EQ(value(stock.minor), 3);
    EXPECT_EQ(value(stock.build), 8);
    EXPECT_EQ(value(stock.current), 0);
    EXPECT_EQ(value(stock.moduleCount), 2);
    EXPECT_EQ(value(bonds.build), 12);
    EXPECT_EQ(value(bonds.current), 1);
    EXPECT_EQ(value(bonds.moduleCount), 1);
    EXPECT_NE(value(stock.moduleTableId), value(bonds.moduleTableId));
}

TEST_F(HostProducts, ModuleTablesByConfiguration)
{
    start(kProfile);
    const std::vector<coreNameConfig> configs = CInstalledProducts().configurations();
    ASSERT_EQ(configs.size(), 2u);
    const std::vector<coreModuleEntry> stock = CInstalledProducts().moduleTable(configs[0]);
    ASSERT_EQ(stock.size(), 2u);
    EXPECT_EQ(fieldBytes(stock[0].name), "core.so");
    EXPECT_EQ(value(stock[0].fourth), 77);
    EXPECT_EQ(fieldBytes(stock[1].name), "charts.so");
    EXPECT_EQ(value(stock[1].major), 1);
    EXPECT_EQ(value(stock[1].minor), 2);
    EXPECT_EQ(value(stock[1].build), 0);
    const std::vector<coreModuleEntry> bonds = CInstalledProducts().moduleTable(configs[1]);
    ASSERT_EQ(bonds.size(), 1u);
    EXPECT_EQ(value(bonds[0].minor), 4);

    // A table the host does not have stays zeroed.
    coreNameConfig unknown = configs[0];
    unknown.moduleTableId = 99;
    EXPECT_EQ(fieldBytes(CInstalledProducts().moduleTable(unknown)[0].name), "");
}

TEST_F(HostProducts, ConfigurationFilePaths)
{
    start(kProfile);
    EXPECT_EQ(CInstalledProducts().GetPathToConfigFile("Stock"),
              QDir(dir.path()).filePath("run/config/stock/terminal.cfg"));
    EXPECT_EQ(CInstalledProducts().GetPathToConfigFile("Bonds"),
              QDir(dir.path()).filePath("run/config/Bonds.cfg"));
    EXPECT_EQ(CInstalledProducts().GetPathToConfigFile("Metals"), "");
}

TEST_F(HostProducts, ModuleListParsedAgainstTheHostsTables)
{
    start(kProfile);
    const std::vector<coreNameConfig> configs = CInstalledProducts().configurations();
    ModuleListSources sources;
    sources.configs = configs.data();
    sources.configCount = int(configs.size());
    const QString list = writeListFile(dir, "moduleDesc.txt",
                                       "core.so,3.4.0,,0,/d,/f,Core,100\n"
                                       "charts.so,1.2.1,,0,/d,/f,Charts,100\n"
                                       "news.so,0.1.0,,0,/d,/f,News,100\n");
    dlListModule forStock;
    parseFileList(list, forStock, "Stock", sources, CInstalledProducts());
    EXPECT_EQ(names(forStock), (std::vector<QByteArray>{"core.so", "charts.so", "news.so"}));
    // Bonds, the current configuration, already has core.so 3.4.0.
    dlListModule forCurrent;
    parseFileList(list, forCurrent, QString(), sources, CInstalledProducts());
    EXPECT_EQ(names(forCurrent), (std::vector<QByteArray>{"charts.so", "news.so"}));
}

TEST_F(HostProducts, ProfileWithoutConfigurationsReportsNone)
{
    start(R"({"folders": {"2": "run/config"}})");
    EXPECT_TRUE(CInstalledProducts().configurations().empty());
    EXPECT_EQ(CInstalledProducts().GetPathToConfigFile("Stock"), "");
}

TEST_F(HostProducts, MalformedEntriesAreNamed)
{
    EXPECT_TRUE(parseError(R"({"installedConfigurations": {}})").contains("must be an array"));
    EXPECT_TRUE(parseError(R"({"installedConfigurations": [{"name": "S", "version": "3.3"}]})")
                    .contains("installed configuration 0: \"version\""));
    EXPECT_TRUE(parseError(R"({"installedConfigurations": [{"version": "3.3.8"}]})")
                    .contains("\"name\""));
    EXPECT_TRUE(parseError(R"({"installedConfigurations": [{"name": "S", "version": "1.0.0",
                              "current": 1}]})")
                    .contains("\"current\""));
    EXPECT_TRUE(parseError(R"({"installedConfigurations": [{"name": "S", "version": "1.0.0",
                              "modules": [{"name": "a.so", "version": "x"}]}]})")
                    .contains("module 0: \"version\""));
    EXPECT_TRUE(parseError(R"({"installedConfigurations": [{"name": "S", "version": "1.0.0",
                              "modules": [{"name": "a.so", "version": "1.0.0", "fourth": 1.5}]}]})")
                    .contains("\"fourth\""));
}
