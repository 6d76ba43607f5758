// The reference host's installed configurations and module tables, asked for
// by the module's own queries and parsers through the host's real bridge.
#include <memory>

#include <QDir>
#include <gtest/gtest.h>

#include "UpdateTestSupport.h"
#include "host/app/HostBridge.h"
#include "host/app/HostProfile.h"
#include "host/app/HostWindow.h"
#include "protocol/ModuleApi.h"
#include "update/InstalledProducts.h"

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

using Texts = std::vector<QByteArray>;

class HostProducts : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(dir.isValid()); }
    void TearDown() override { ::Initialize(nullptr, nullptr, nullptr, nullptr); }

    void start(const char* json)
    {
        ASSERT_TRUE(profile.parse(json, dir.path())) << qPrintable(profile.errorString());
        bridge.reset(new HostBridge(profile, &window));
        ::Initialize(&HostBridge::send, &HostBridge::post, bridge->hostObject(), nullptr);
    }

    QTemporaryDir dir;
    HostProfile profile;
    HostWindow window;
    std::unique_ptr<HostBridge> bridge;
};

}  // namespace

TEST_F(HostProducts, ConfigurationsAndTheirModuleTablesFromTheProfile)
{
    start(kProfile);
    const std::vector<coreNameConfig> configs = CInstalledProducts().configurations();
    EXPECT_EQ(describe(configs), (Texts{"Stock|Stock exchange|3.3.8|0|2", "Bonds||1.0.12|1|1"}));
    ASSERT_EQ(configs.size(), 2u);
    EXPECT_NE(value(configs[0].moduleTableId), value(configs[1].moduleTableId));
    EXPECT_EQ(describe(CInstalledProducts().moduleTable(configs[0])),
              (Texts{"core.so|3.3.8|77", "charts.so|1.2.0|0"}));
    EXPECT_EQ(describe(CInstalledProducts().moduleTable(configs[1])), Texts{"core.so|3.4.0|0"});

    // A table the host does not have stays zeroed.
    coreNameConfig unknown = configs[0];
    unknown.moduleTableId = 99;
    EXPECT_EQ(describe(CInstalledProducts().moduleTable(unknown)), (Texts{"|0.0.0|0", "|0.0.0|0"}));
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

TEST_F(HostProducts, ProfileWithoutConfigurationsReportsNone)
{
    start(R"({"folders": {"2": "run/config"}})");
    EXPECT_TRUE(CInstalledProducts().configurations().empty());
    EXPECT_EQ(CInstalledProducts().GetPathToConfigFile("Stock"), "");
}

TEST_F(HostProducts, MalformedEntriesAreNamed)
{
    const char* const cases[][2] = {
        {R"({"installedConfigurations": {}})", "must be an array"},
        {R"({"installedConfigurations": [{"name": "S", "version": "3.3"}]})",
         "installed configuration 0: \"version\""},
        {R"({"installedConfigurations": [{"version": "3.3.8"}]})", "\"name\""},
        {R"({"installedConfigurations": [{"name": "S", "version": "1.0.0", "current": 1}]})",
         "\"current\""},
        {R"({"installedConfigurations": [{"name": "S", "version": "1.0.0",
             "modules": [{"name": "a.so", "version": "x"}]}]})",
         "module 0: \"version\""},
        {R"({"installedConfigurations": [{"name": "S", "version": "1.0.0",
             "modules": [{"name": "a.so", "version": "1.0.0", "fourth": 1.5}]}]})",
         "\"fourth\""}};
    for (const auto& c : cases) {
        HostProfile broken;
        EXPECT_FALSE(broken.parse(c[0], dir.path())) << c[0];
        EXPECT_TRUE(broken.errorString().contains(c[1])) << qPrintable(broken.errorString());
    }
}
