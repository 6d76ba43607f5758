// Module lists as the update server publishes them, and which of their
// entries are offered against what the host reports as installed.
#include <vector>

#include <gtest/gtest.h>

#include "UpdateTestSupport.h"
#include "update/InstalledProducts.h"
#include "update/ModuleListParser.h"

namespace {

const QString kDataDir = QStringLiteral(DM_SOURCE_DIR "/tests/update/data/");

// A module list line: name,version,extra,type,descPath,serverPath,title,size.
QByteArray line(const QByteArray& name, const QByteArray& version, const QByteArray& type = "0",
                const QByteArray& size = "10")
{
    return name + "," + version + ",x," + type + ",/desc/" + name + ".txt,/files/" + name
           + ".gz,Title " + name + "," + size + "\n";
}

// Parses lines against nothing installed.
dlListModule parseAlone(const QByteArray& lines)
{
    dlListModule list;
    parseModuleLines(QString::fromLatin1(lines).split('\n', Qt::SkipEmptyParts), list,
                     ModuleListBasis());
    return list;
}

QByteArray sizeOf(const QByteArray& sizeField)
{
    const dlListModule list = parseAlone(line("a", "1.0.0", "0", sizeField));
    return list.count == 1 ? dlText(list.modules[0].sizeText) : QByteArray("<not parsed>");
}

class ModuleListFile : public ::testing::Test {
protected:
    QTemporaryDir dir;
    CInstalledProducts noHost{nullptr, nullptr};

    dlListModule parseFile(const QByteArray& bytes, const ModuleListSources& sources = {})
    {
        dlListModule list;
        parseFileList(writeListFile(dir, "moduleDesc.txt", bytes), list, QString(), sources, noHost);
        return list;
    }
};

}  // namespace

TEST(ModuleLine, EveryFieldLandsInItsRecordField)
{
    dlModule out;
    ASSERT_TRUE(parseModuleLine(
        "core.so,3.2.1,7.0.0,1,/desc/core.txt,/files/core.so.gz,Core library,1500,ignored,more", out));
    EXPECT_EQ(dlText(out.name), "core.so");
    EXPECT_EQ(dlText(out.version), "3.2.1");
    EXPECT_EQ(dlText(out.versionExtra), "7.0.0");
    EXPECT_EQ(dlText(out.type), "1");
    // Field 5 is the description's location and field 6 the file's.
    EXPECT_EQ(dlText(out.descPath), "/desc/core.txt");
    EXPECT_EQ(dlText(out.serverPath), "/files/core.so.gz");
    EXPECT_EQ(dlText(out.localPath), "");
    EXPECT_EQ(dlText(out.auxPath), "");
    EXPECT_EQ(out.state, -1);
    EXPECT_EQ(dlText(out.title), "Core library");
    EXPECT_EQ(dlText(out.sizeText), "1.0 Mb");
}

TEST(ModuleLine, SpacesAndEmptyFieldsAreKept)
{
    dlModule out;
    ASSERT_TRUE(parseModuleLine(" a.so , 1.0.0,,,,, My title ,5", out));
    EXPECT_EQ(dlText(out.name), " a.so ");
    EXPECT_EQ(dlText(out.version), " 1.0.0");
    EXPECT_EQ(dlText(out.versionExtra), "");
    EXPECT_EQ(dlText(out.serverPath), "");
    EXPECT_EQ(dlText(out.title), " My title ");
}

TEST(ModuleLine, NeedsSevenCommas)
{
    dlModule out = emptyDlModule();
    setDlText(out.name, "before");
    EXPECT_FALSE(parseModuleLine("a,1.0.0,x,0,d,s,Title", out));
    EXPECT_FALSE(parseModuleLine("", out));
    EXPECT_FALSE(parseModuleLine("no commas at all", out));
    EXPECT_EQ(dlText(out.name), "before");
    EXPECT_TRUE(parseModuleLine(",,,,,,,", out));
    EXPECT_EQ(dlText(out.name), "");
    EXPECT_EQ(dlText(out.sizeText), "0 kb");
}

TEST(ModuleLine, SizeIsTheWholeRestAfterSevenCommasOrUpToTheEighth)
{
    EXPECT_EQ(sizeOf("2048"), "2.0 Mb");
    EXPECT_EQ(sizeOf("1024"), "1024 kb");
    EXPECT_EQ(sizeOf("1025"), "1.0 Mb");
    EXPECT_EQ(sizeOf("2047"), "1.0 Mb");
    EXPECT_EQ(sizeOf("0"), "0 kb");
    EXPECT_EQ(sizeOf(""), "0 kb");
    EXPECT_EQ(sizeOf("2048,1"), "2.0 Mb");
    EXPECT_EQ(sizeOf("2048 1"), "0 kb");
    EXPECT_EQ(sizeOf("12kb"), "0 kb");
    EXPECT_EQ(sizeOf("0x400"), "0 kb");
    EXPECT_EQ(sizeOf("99999999999"), "0 kb");
}

TEST(ModuleLine, LongFieldsAreCutTo254BytesWithoutTouchingTheirNeighbours)
{
    for (int length : {254, 255, 300}) {
        const QByteArray name(length, 'n');
        const QByteArray title(length, 't');
        dlModule out;
        ASSERT_TRUE(parseModuleLine(QString::fromLatin1(name + ",1.0.0,x,0,d,s," + title + ",5"), out));
        EXPECT_EQ(dlText(out.name), QByteArray(qMin(length, 254), 'n')) << length;
        EXPECT_EQ(dlText(out.version), "1.0.0") << length;
        EXPECT_EQ(dlText(out.title), QByteArray(qMin(length, 254), 't')) << length;
        EXPECT_EQ(dlText(out.sizeText), "5 kb") << length;
    }
}

TEST(ModuleList, StopsAtTheFirstMalformedLine)
{
    dlListModule list;
    CInstalledProducts noHost(nullptr, nullptr);
    parseFileList(kDataDir + "moduleDesc-third-line-six-commas.txt", list, QString(), {}, noHost);
    EXPECT_EQ(names(list), (std::vector<QByteArray>{"a.so", "b.so"}));

    dlListModule empty;
    parseFileList(kDataDir + "moduleDesc-empty-second-line.txt", empty, QString(), {}, noHost);
    EXPECT_EQ(names(empty), (std::vector<QByteArray>{"a.so"}));
}

TEST(ModuleList, AcceptsCrLfLineEnds)
{
    dlListModule list;
    parseFileList(kDataDir + "moduleDesc-crlf.txt", list, QString(), {}, CInstalledProducts(nullptr, nullptr));
    ASSERT_EQ(list.count, 2);
    EXPECT_EQ(dlText(list.modules[0].sizeText), "10 kb");
    EXPECT_EQ(dlText(list.modules[1].sizeText), "2.0 Mb");
}

TEST_F(ModuleListFile, AppendsToWhatTheListAlreadyHolds)
{
    dlListModule list;
    list.append(emptyDlModule());
    setDlText(list.modules[0].name, "earlier");
    parseFileList(writeListFile(dir, "m.txt", line("a", "1.0.0") + line("b", "1.0.0")), list,
                  QString(), {}, noHost);
    EXPECT_EQ(names(list), (std::vector<QByteArray>{"earlier", "a", "b"}));
}

TEST_F(ModuleListFile, MissingFileAppendsNothing)
{
    dlListModule list;
    list.append(emptyDlModule());
    parseFileList(dir.filePath("absent.txt"), list, QString(), {}, noHost);
    EXPECT_EQ(list.count, 1);
}

TEST(ModuleOffer, ModuleNotInstalledIsOfferedWhateverItsVersion)
{
    const std::vector<coreModuleEntry> installed{installedModule("other.so", 9, 9, 9)};
    ModuleListBasis basis;
    basis.installed = installed.data();
    basis.installedCount = int(installed.size());
    dlListModule list;
    parseModuleLines({QString::fromLatin1(line("a.so", "0.0.0")),
                      QString::fromLatin1(line("b.so", "")),
                      QString::fromLatin1(line("OTHER.so", "0.0.1"))},
                     list, basis);
    EXPECT_EQ(names(list), (std::vector<QByteArray>{"a.so", "b.so", "OTHER.so"}));
}

TEST(ModuleOffer, InstalledModuleIsOfferedOnlyWhenNewer)
{
    const std::vector<coreModuleEntry> installed{installedModule("same.so", 1, 2, 3),
                                                 installedModule("older.so", 1, 2, 2),
                                                 installedModule("newer.so", 1, 2, 4),
                                                 installedModule("short.so", 2, 2, 1)};
    ModuleListBasis basis;
    basis.installed = installed.data();
    basis.installedCount = int(installed.size());
    dlListModule list;
    parseModuleLines({QString::fromLatin1(line("same.so", "1.2.3")),
                      QString::fromLatin1(line("older.so", "1.2.3")),
                      QString::fromLatin1(line("newer.so", "1.2.3")),
                      QString::fromLatin1(line("short.so", "2"))},
                     list, basis);
    EXPECT_EQ(names(list), (std::vector<QByteArray>{"older.so", "short.so"}));
}

TEST(ModuleOffer, FirstInstalledModuleOfANameDecides)
{
    std::vector<coreModuleEntry> installed{installedModule("a.so", 2, 0, 0),
                                           installedModule("a.so", 1, 0, 0)};
    ModuleListBasis basis;
    basis.installed = installed.data();
    basis.installedCount = 2;
    dlModule entry;
    ASSERT_TRUE(parseModuleLine(QString::fromLatin1(line("a.so", "1.5.0")), entry));
    EXPECT_FALSE(isModuleOffered(entry, basis));
    std::swap(installed[0], installed[1]);
    EXPECT_TRUE(isModuleOffered(entry, basis));
}

TEST(ModuleOffer, ConfigurationFileIsComparedWithTheNamedConfiguration)
{
    const coreNameConfig named = installedConfig("Stock", 2, 1, 0);
    // A module-table entry with the file's name does not decide for type "2".
    const std::vector<coreModuleEntry> installed{installedModule("stock.cfg", 9, 9, 9)};
    ModuleListBasis basis;
    basis.installed = installed.data();
    basis.installedCount = 1;

    dlModule same, newer, older, ordinary;
    ASSERT_TRUE(parseModuleLine(QString::fromLatin1(line("stock.cfg", "2.1.0", "2")), same));
    ASSERT_TRUE(parseModuleLine(QString::fromLatin1(line("stock.cfg", "2.1.1", "2")), newer));
    ASSERT_TRUE(parseModuleLine(QString::fromLatin1(line("stock.cfg", "2.0.9", "2")), older));
    ASSERT_TRUE(parseModuleLine(QString::fromLatin1(line("stock.cfg", "2.1.1", " 2")), ordinary));

    // Without a configuration of that name the file is always offered.
    EXPECT_TRUE(isModuleOffered(same, basis));
    EXPECT_TRUE(isModuleOffered(older, basis));

    basis.namedConfig = &named;
    for (int32_t fourth : {0, 7}) {
        basis.fourth = fourth;
        EXPECT_FALSE(isModuleOffered(same, basis));
        EXPECT_TRUE(isModuleOffered(newer, basis));
        EXPECT_FALSE(isModuleOffered(older, basis));
    }
    // Only exactly "2" marks a configuration file.
    EXPECT_FALSE(isModuleOffered(ordinary, basis));
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

    dlListModule parse(const QByteArray& bytes, const QString& configName,
                       const ModuleListSources& base = {})
    {
        ModuleListSources sources = base;
        sources.configs = configs.data();
        sources.configCount = int(configs.size());
        dlListModule list;
        parseFileList(writeListFile(dir, "m.txt", bytes), list, configName, sources,
                      CInstalledProducts());
        return list;
    }
};

TEST_F(ModuleListAgainstHost, AsksForTheNamedConfigurationsTable)
{
    const dlListModule list = parse(line("a.so", "2.0.0") + line("b.so", "1.0.0"), "Stock");
    ASSERT_EQ(products.tableRequests.size(), 1u);
    EXPECT_EQ(value(products.tableRequests[0].tableId), 11);
    EXPECT_EQ(value(products.tableRequests[0].count), 2);
    EXPECT_EQ(names(list), (std::vector<QByteArray>{"a.so"}));
}

TEST_F(ModuleListAgainstHost, FallsBackToTheCurrentConfigurationsTable)
{
    const dlListModule list = parse(line("a.so", "2.0.0") + line("b.so", "1.0.0"), QString());
    ASSERT_EQ(products.tableRequests.size(), 1u);
    EXPECT_EQ(value(products.tableRequests[0].tableId), 22);
    EXPECT_EQ(value(products.tableRequests[0].count), 1);
    // a.so 3.0.0 is installed in Bonds; b.so is not in its table.
    EXPECT_EQ(names(list), (std::vector<QByteArray>{"b.so"}));
}

TEST_F(ModuleListAgainstHost, ConfigurationFileNeedsANameMatchNotTheCurrentOne)
{
    // Configuration files are compared with the version of the configuration
    // the list is parsed for: Stock 2.0.0, Bonds 1.0.0 (current).
    const QByteArray lines = line("a.cfg", "2.0.0", "2") + line("b.cfg", "2.0.1", "2")
                             + line("c.cfg", "0.5.0", "2");
    EXPECT_EQ(names(parse(lines, "Stock")), (std::vector<QByteArray>{"b.cfg"}));
    EXPECT_EQ(names(parse(lines, "Bonds")), (std::vector<QByteArray>{"a.cfg", "b.cfg"}));
    // No name matched: Bonds, the current one, gives the module table, but
    // configuration files are offered whatever their version.
    EXPECT_EQ(names(parse(lines, "Unknown")),
              (std::vector<QByteArray>{"a.cfg", "b.cfg", "c.cfg"}));
}

TEST_F(ModuleListAgainstHost, AutomaticModeComparesWithItsOwnTable)
{
    const std::vector<coreModuleEntry> autoTable{installedModule("b.so", 5, 0, 0)};
    ModuleListSources sources;
    sources.autoMode = true;
    sources.autoModules = autoTable.data();
    sources.autoModuleCount = 1;
    const dlListModule list = parse(line("a.so", "2.0.0") + line("b.so", "2.0.0"), "Stock", sources);
    // The host's table is still asked for, but a.so is now unknown and b.so older.
    EXPECT_EQ(products.tableRequests.size(), 1u);
    EXPECT_EQ(names(list), (std::vector<QByteArray>{"a.so"}));
}

TEST_F(ModuleListAgainstHost, NoConfigurationMeansNoTableAndEverythingOffered)
{
    configs.clear();
    const dlListModule list = parse(line("a.so", "1.0.0") + line("b.so", "1.0.0"), "Stock");
    EXPECT_TRUE(products.tableRequests.empty());
    EXPECT_EQ(names(list), (std::vector<QByteArray>{"a.so", "b.so"}));
}

TEST_F(ModuleListAgainstHost, TableIsAskedForEvenWhenTheListIsMissing)
{
    ModuleListSources sources;
    sources.configs = configs.data();
    sources.configCount = 2;
    dlListModule list;
    parseFileList(dir.filePath("absent.txt"), list, "Stock", sources, CInstalledProducts());
    EXPECT_EQ(products.tableRequests.size(), 1u);
    EXPECT_EQ(list.count, 0);
}
