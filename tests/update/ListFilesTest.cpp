// Module lists read from their files: which installed configuration and table
// an entry is compared with.
#include <vector>

#include <gtest/gtest.h>

#include "UpdateTestSupport.h"
#include "update/ConfigListParser.h"
#include "update/InstalledProducts.h"
#include "update/ModuleListParser.h"
#include "update/VersionRules.h"

namespace {

using Names = std::vector<QByteArray>;

// A module list line: name,version,extra,type,descPath,serverPath,title,size.
QByteArray line(const QByteArray& name, const QByteArray& version, const QByteArray& type = "0")
{
    return name + "," + version + ",x," + type + ",/desc/" + name + ".txt,/files/" + name
           + ".gz,Title " + name + ",10\n";
}

}  // namespace

TEST(ConfigurationChoice, LastNameMatchWinsOverLastCurrentAndTheFirstCurrentIsInUse)
{
    std::vector<coreNameConfig> configs{
        installedConfig("Stock", 1, 0, 0, true), installedConfig("Bonds", 1, 0, 0),
        installedConfig("Stock", 1, 0, 0), installedConfig("Forex", 1, 0, 0, true),
        installedConfig("Metals", 1, 0, 0)};
    const ConfigurationChoice choice = chooseConfiguration(configs.data(), 5, "Stock");
    EXPECT_EQ(std::vector<int>({choice.named, choice.current, choice.chosen()}), std::vector<int>({2, 3, 2}));
    EXPECT_EQ(chooseConfiguration(configs.data(), 5, "Commodities").chosen(), 3);
    // Names compare byte for byte, here and in the offer rules.
    EXPECT_EQ(chooseConfiguration(configs.data(), 5, "stock").chosen(), 3);
    dlModule entry;
    ASSERT_TRUE(parseConfigLine("stock,0.0.1,/m,/d,T", entry));
    EXPECT_TRUE(isConfigOffered(entry, configs.data(), 5, false));
    EXPECT_EQ(chooseConfiguration(configs.data(), 0, "Stock").chosen(), -1);
    EXPECT_EQ(chooseConfiguration(configs.data() + 1, 1, "Stock").chosen(), -1);

    // The configuration in use (automatic mode, installation): the first marked 1 within the count.
    const int first = getCurrentConfigurationIndex(configs.data(), 5);
    configs[0].current = 2;
    EXPECT_EQ(std::vector<int>({first, getCurrentConfigurationIndex(configs.data(), 5),
                                getCurrentConfigurationIndex(configs.data(), 3),
                                getCurrentConfigurationIndex(nullptr, 0)}),
              std::vector<int>({0, 3, -1, -1}));
}

// A module list file parsed for a configuration name against the host: the
// chosen configuration's module table is asked for (even when the list is
// missing) and decides for ordinary files; files of type exactly "2" are
// compared with the version of the configuration the name matched, and
// offered whatever their version when no name matched.
TEST(ModuleListAgainstHost, TheChosenConfigurationsTableOrVersionDecides)
{
    const QByteArray modules = line("a.so", "2.0.0") + line("b.so", "2.0.0") + line("A.so", "0.0.1");
    const QByteArray cfgFiles = line("a.cfg", "2.0.0", "2") + line("b.cfg", "2.0.1", "2")
                                + line("c.cfg", "0.5.0", "2") + line("d.cfg", "3.0.0", " 2");
    const QByteArray noList;
    const struct {
        const char* why;
        const QByteArray& lines;  // null: no list file
        const char* configName;
        bool autoMode;
        bool noConfigurations;
        Names offered;
        Names tablesAsked;  // "table id/count"
    } cases[] = {
        {"named: Stock's table", modules, "Stock", false, false, {"a.so", "A.so"}, {"11/4"}},
        {"no name: the current one, Bonds", modules, "", false, false, {"b.so", "A.so"}, {"22/1"}},
        {"automatic: its own table, the host's still asked", modules, "Stock", true, false,
         {"b.so", "A.so"}, {"11/4"}},
        {"no list: the table all the same", noList, "Stock", false, false, {}, {"11/4"}},
        {"no configurations: no table, all offered", modules, "Stock", false, true,
         {"a.so", "b.so", "A.so"}, {}},
        // Stock 2.0.0; d.cfg is not of type "2" and older than Stock's table entry.
        {"configuration files: Stock's version", cfgFiles, "Stock", false, false, {"b.cfg"}, {"11/4"}},
        {"configuration files: Bonds' version", cfgFiles, "Bonds", false, false,
         {"a.cfg", "b.cfg", "d.cfg"}, {"22/1"}},
        {"configuration files: no name matched", cfgFiles, "Unknown", false, false,
         {"a.cfg", "b.cfg", "c.cfg", "d.cfg"}, {"22/1"}},
    };
    const coreModuleEntry autoTable = installedModule("a.so", 5, 0, 0);
    for (const auto& c : cases) {
        ProductsHost products;
        products.tables[11] = {installedModule("a.so", 1, 0, 0, 5), installedModule("b.so", 2, 0, 0),
                               installedModule("b.cfg", 9, 9, 9), installedModule("d.cfg", 9, 9, 9)};
        products.tables[22] = {installedModule("a.so", 3, 0, 0, 6)};
        std::vector<coreNameConfig> configs{installedConfig("Stock", 2, 0, 0, false, 4, 11),
                                            installedConfig("Bonds", 1, 0, 0, true, 1, 22)};
        if (c.noConfigurations)
            configs.clear();
        ModuleListSources sources;
        sources.configs = configs.data(), sources.configCount = int(configs.size());
        sources.autoMode = c.autoMode, sources.autoModules = &autoTable, sources.autoModuleCount = 1;
        QTemporaryDir dir;
        dlListModule list;
        parseFileList(c.lines.isNull() ? dir.filePath("absent.txt") : writeListFile(dir, "m.txt", c.lines),
                      list, QString::fromLatin1(c.configName), sources, CInstalledProducts());
        Names asked;
        for (const coreModuleTableRequest& r : products.tableRequests)
            asked.push_back(QByteArray::number(value(r.tableId)) + '/' + QByteArray::number(value(r.count)));
        EXPECT_EQ(names(list), c.offered) << c.why;
        EXPECT_EQ(asked, c.tablesAsked) << c.why;
    }
}
