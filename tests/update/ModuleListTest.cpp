// Module lists as the update server publishes them, and which of their
// entries are offered against what the host reports as installed.
#include <vector>

#include <gtest/gtest.h>

#include "UpdateTestSupport.h"
#include "update/InstalledProducts.h"
#include "update/ModuleListParser.h"

namespace {

const QString kDataDir = QStringLiteral(DM_SOURCE_DIR "/tests/update/data/");
using Names = std::vector<QByteArray>;

// A module list line: name,version,extra,type,descPath,serverPath,title,size.
QByteArray line(const QByteArray& name, const QByteArray& version, const QByteArray& type = "0",
                const QByteArray& size = "10")
{
    return name + "," + version + ",x," + type + ",/desc/" + name + ".txt,/files/" + name
           + ".gz,Title " + name + "," + size + "\n";
}

// The names offered from lines against the installed modules.
Names offered(const QByteArray& lines, const std::vector<coreModuleEntry>& installed = {})
{
    ModuleListBasis basis;
    basis.installed = installed.data();
    basis.installedCount = int(installed.size());
    dlListModule list;
    parseModuleLines(QString::fromLatin1(lines).split('\n', Qt::SkipEmptyParts), list, basis);
    return names(list);
}

dlModule entry(const QByteArray& lineText)
{
    dlModule out = emptyDlModule();
    EXPECT_TRUE(parseModuleLine(QString::fromLatin1(lineText), out)) << lineText.constData();
    return out;
}

dlListModule parseListFile(const QString& path)
{
    dlListModule list;
    parseFileList(path, list, QString(), {}, CInstalledProducts(nullptr, nullptr));
    return list;
}

}  // namespace

TEST(ModuleLine, EveryFieldLandsInItsRecordField)
{
    // Field 5 is the description's location and field 6 the file's; fields
    // after the eighth are ignored.
    EXPECT_EQ(fields(entry("core.so,3.2.1,7.0.0,1,/desc/core.txt,/files/core.so.gz,Core library,"
                           "1500,ignored,more")),
              "core.so|3.2.1|7.0.0|1|/files/core.so.gz|/desc/core.txt|||Core library|1.0 Mb|-1");
    EXPECT_EQ(fields(entry(" a.so , 1.0.0,,,,, My title ,5")), " a.so | 1.0.0||||||| My title |5 kb|-1")
        << "spaces and empty fields are kept";
}

TEST(ModuleLine, NeedsSevenCommas)
{
    dlModule out = emptyDlModule();
    setDlText(out.name, "before");
    EXPECT_FALSE(parseModuleLine("a,1.0.0,x,0,d,s,Title", out));
    EXPECT_FALSE(parseModuleLine("", out));
    EXPECT_FALSE(parseModuleLine("no commas at all", out));
    EXPECT_EQ(dlText(out.name), "before");
    EXPECT_EQ(fields(entry(",,,,,,,")), "|||||||||0 kb|-1");
}

TEST(ModuleLine, SizeIsTheWholeRestAfterSevenCommasOrUpToTheEighth)
{
    const char* const cases[][2] = {
        {"1024", "1024 kb"}, {"1025", "1.0 Mb"}, {"2047", "1.0 Mb"}, {"2048", "2.0 Mb"},
        {"0", "0 kb"},       {"", "0 kb"},       {"2048,1", "2.0 Mb"}, {"2048 1", "0 kb"},
        {"12kb", "0 kb"},    {"0x400", "0 kb"},  {"99999999999", "0 kb"}};
    for (const auto& c : cases)
        EXPECT_EQ(dlText(entry(line("a", "1.0.0", "0", c[0])).sizeText), c[1]) << c[0];
}

TEST(ModuleLine, LongFieldsAreCutTo254BytesWithoutTouchingTheirNeighbours)
{
    for (int length : {254, 255, 300}) {
        const QByteArray name(qMin(length, 254), 'n');
        const QByteArray title(qMin(length, 254), 't');
        EXPECT_EQ(fields(entry(QByteArray(length, 'n') + ",1.0.0,x,0,d,s," + QByteArray(length, 't')
                               + ",5")),
                  name + "|1.0.0|x|0|s|d|||" + title + "|5 kb|-1")
            << length;
    }
}

TEST(ModuleList, ReadsTheLeadingWellFormedLinesOfAFile)
{
    EXPECT_EQ(names(parseListFile(kDataDir + "moduleDesc-third-line-six-commas.txt")),
              (Names{"a.so", "b.so"}));
    EXPECT_EQ(names(parseListFile(kDataDir + "moduleDesc-empty-second-line.txt")), Names{"a.so"});

    const dlListModule crlf = parseListFile(kDataDir + "moduleDesc-crlf.txt");
    ASSERT_EQ(crlf.count, 2);
    EXPECT_EQ(dlText(crlf.modules[0].sizeText), "10 kb");
    EXPECT_EQ(dlText(crlf.modules[1].sizeText), "2.0 Mb");
}

TEST(ModuleList, AppendsToWhatTheListHolds)
{
    QTemporaryDir dir;
    dlListModule list;
    list.append(emptyDlModule());
    setDlText(list.modules[0].name, "earlier");
    parseFileList(writeListFile(dir, "m.txt", line("a", "1.0.0") + line("b", "1.0.0")), list,
                  QString(), {}, CInstalledProducts(nullptr, nullptr));
    EXPECT_EQ(names(list), (Names{"earlier", "a", "b"}));
}

TEST(ModuleOffer, NotInstalledAlwaysInstalledOnlyWhenNewer)
{
    EXPECT_EQ(offered(line("a.so", "0.0.0") + line("b.so", "") + line("OTHER.so", "0.0.1"),
                      {installedModule("other.so", 9, 9, 9)}),
              (Names{"a.so", "b.so", "OTHER.so"}));

    EXPECT_EQ(offered(line("same.so", "1.2.3") + line("older.so", "1.2.3") + line("newer.so", "1.2.3")
                          + line("short.so", "2"),
                      {installedModule("same.so", 1, 2, 3), installedModule("older.so", 1, 2, 2),
                       installedModule("newer.so", 1, 2, 4), installedModule("short.so", 2, 2, 1)}),
              (Names{"older.so", "short.so"}));

    // The first installed module of a name decides.
    const coreModuleEntry v2 = installedModule("a.so", 2, 0, 0), v1 = installedModule("a.so", 1, 0, 0);
    EXPECT_EQ(offered(line("a.so", "1.5.0"), {v2, v1}), Names{});
    EXPECT_EQ(offered(line("a.so", "1.5.0"), {v1, v2}), Names{"a.so"});
}

TEST(ConfigurationChoice, LastNameMatchWinsOverLastCurrent)
{
    const std::vector<coreNameConfig> configs{
        installedConfig("Stock", 1, 0, 0, true), installedConfig("Bonds", 1, 0, 0),
        installedConfig("Stock", 1, 0, 0), installedConfig("Forex", 1, 0, 0, true),
        installedConfig("Metals", 1, 0, 0)};
    ConfigurationChoice choice = chooseConfiguration(configs.data(), 5, "Stock");
    EXPECT_EQ(choice.named, 2);
    EXPECT_EQ(choice.current, 3);
    EXPECT_EQ(choice.chosen(), 2);

    choice = chooseConfiguration(configs.data(), 5, "Commodities");
    EXPECT_EQ(choice.named, -1);
    EXPECT_EQ(choice.chosen(), 3);

    choice = chooseConfiguration(configs.data(), 5, "stock");
    EXPECT_EQ(choice.chosen(), 3) << "names compare byte for byte";

    EXPECT_EQ(chooseConfiguration(configs.data(), 0, "Stock").chosen(), -1);
    EXPECT_EQ(chooseConfiguration(configs.data() + 1, 1, "Stock").chosen(), -1);
}

class ModuleListAgainstHost : public ::testing::Test {
protected:
    ProductsHost products;
    QTemporaryDir dir;
    std::vector<coreNameConfig> configs{installedConfig("Stock", 2, 0, 0, false, 2, 11),
                                        installedConfig("Bonds", 1, 0, 0, true, 1, 22)};

    void SetUp() override
    {
        products.tables[11] = {installedModule("a.so", 1, 0, 0, 5), installedModule("b.so", 1, 0, 0)};
        products.tables[22] = {installedModule("a.so", 3, 0, 0, 6)};
    }

    Names parse(const QByteArray& bytes, const QString& configName,
                ModuleListSources sources = {})
    {
        sources.configs = configs.data();
        sources.configCount = int(configs.size());
        dlListModule list;
        parseFileList(bytes.isNull() ? dir.filePath("absent.txt") : writeListFile(dir, "m.txt", bytes),
                      list, configName, sources, CInstalledProducts());
        return names(list);
    }

    // "table id/count" of each module table the module asked for.
    std::vector<QByteArray> tablesAsked() const
    {
        std::vector<QByteArray> result;
        for (const coreModuleTableRequest& r : products.tableRequests)
            result.push_back(QByteArray::number(value(r.tableId)) + '/' + QByteArray::number(value(r.count)));
        return result;
    }
};

TEST_F(ModuleListAgainstHost, NamedConfigurationsTableOrElseTheCurrentOnes)
{
    const QByteArray lines = line("a.so", "2.0.0") + line("b.so", "1.0.0");
    EXPECT_EQ(parse(lines, "Stock"), Names{"a.so"});
    // No name: Bonds, the current one, has a.so 3.0.0 and no b.so.
    EXPECT_EQ(parse(lines, QString()), Names{"b.so"});
    EXPECT_EQ(tablesAsked(), (std::vector<QByteArray>{"11/2", "22/1"}));
}

TEST_F(ModuleListAgainstHost, ConfigurationFileNeedsANameMatchNotTheCurrentOne)
{
    // Files of type "2" are compared with the version of the configuration
    // the list is parsed for (Stock 2.0.0, Bonds 1.0.0 current), never with a
    // module-table entry of their name. Only exactly "2" marks them.
    products.tables[11].push_back(installedModule("b.cfg", 9, 9, 9));
    products.tables[11].push_back(installedModule("d.cfg", 9, 9, 9));
    configs[0].moduleCount = 4;
    const QByteArray lines = line("a.cfg", "2.0.0", "2") + line("b.cfg", "2.0.1", "2")
                             + line("c.cfg", "0.5.0", "2") + line("d.cfg", "3.0.0", " 2");
    EXPECT_EQ(parse(lines, "Stock"), Names{"b.cfg"});
    EXPECT_EQ(parse(lines, "Bonds"), (Names{"a.cfg", "b.cfg", "d.cfg"}));
    // No name matched: Bonds, the current one, gives the module table, but
    // configuration files are offered whatever their version.
    EXPECT_EQ(parse(lines, "Unknown"), (Names{"a.cfg", "b.cfg", "c.cfg", "d.cfg"}));
}

TEST_F(ModuleListAgainstHost, AutomaticModeComparesWithItsOwnTable)
{
    const coreModuleEntry autoTable = installedModule("b.so", 5, 0, 0);
    ModuleListSources sources;
    sources.autoMode = true;
    sources.autoModules = &autoTable;
    sources.autoModuleCount = 1;
    // The host's table is still asked for, but a.so is now unknown and b.so older.
    EXPECT_EQ(parse(line("a.so", "2.0.0") + line("b.so", "2.0.0"), "Stock", sources), Names{"a.so"});
    EXPECT_EQ(tablesAsked(), std::vector<QByteArray>{"11/2"});
}

TEST_F(ModuleListAgainstHost, TableIsAskedForEvenWhenTheListIsMissing)
{
    EXPECT_EQ(parse(QByteArray(), "Stock"), Names{});
    EXPECT_EQ(tablesAsked(), std::vector<QByteArray>{"11/2"});
}

TEST_F(ModuleListAgainstHost, NoConfigurationMeansNoTableAndEverythingOffered)
{
    configs.clear();
    EXPECT_EQ(parse(line("a.so", "1.0.0") + line("b.so", "1.0.0"), "Stock"), (Names{"a.so", "b.so"}));
    EXPECT_TRUE(products.tableRequests.empty());
}
