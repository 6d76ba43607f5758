// Lists of a hundred thousand lines: the lines before the first bad one, and
// the host asked once (ListFaultsTest.cpp has the broken lists a server serves).
#include <vector>

#include <gtest/gtest.h>

#include "UpdateTestSupport.h"
#include "update/ConfigListParser.h"
#include "update/InstalledProducts.h"
#include "update/ModuleListParser.h"

namespace {

class ListRobustness : public ::testing::Test {
protected:
    QTemporaryDir dir;
    CInstalledProducts noHost{nullptr, nullptr};

    dlListModule modules(const QByteArray& bytes, const ModuleListSources& sources = {})
    {
        dlListModule list;
        parseFileList(writeListFile(dir, "moduleDesc.txt", bytes), list, QString(), sources, noHost);
        return list;
    }
};

}  // namespace

TEST_F(ListRobustness, HundredThousandLinesAgainstAThousandInstalledModules)
{
    // Every module is installed at 1.0.0; every hundredth line offers 1.0.1.
    std::vector<coreModuleEntry> installed;
    for (int i = 0; i < 1000; ++i)
        installed.push_back(installedModule(QByteArray("m" + QByteArray::number(i) + ".so"), 1, 0, 0));
    QByteArray bytes;
    for (int i = 0; i < 100000; ++i) {
        bytes += "m" + QByteArray::number(i % 1000) + ".so," + (i % 100 == 99 ? "1.0.1" : "1.0.0")
                 + ",,0,/d/" + QByteArray::number(i) + ",/f/" + QByteArray::number(i) + ",T,"
                 + QByteArray::number(i) + "\n";
    }
    ModuleListSources sources;
    sources.autoMode = true;
    sources.autoModules = installed.data();
    sources.autoModuleCount = int(installed.size());
    const dlListModule list = modules(bytes, sources);
    ASSERT_EQ(list.count, 1000);
    EXPECT_EQ(fields(list.modules[999]), "m999.so|1.0.1||0|/f/99999|/d/99999|||T|97.0 Mb|-1");
    // A bad line near the end still ends the list there.
    EXPECT_EQ(modules(bytes + "bad line\nm5.so,9.0.0,,0,/d,/f,T,1\n", sources).count, 1000);
}

// The host is asked once, after the list has been read, and not at all for a
// list that cannot be read; the offered lines are appended to the list.
TEST_F(ListRobustness, HundredThousandConfigurationLinesAskTheHostOnce)
{
    ProductsHost products;
    products.configs = {installedConfig("Same", 1, 0, 0)};
    QByteArray bytes;
    for (int i = 0; i < 100000; ++i)
        bytes += (i % 100 == 0 ? "New" + QByteArray::number(i) : QByteArray("Same"))
                 + ",1.0.0,/m,/d,Title, with, commas\n";
    dlListModule list;
    list.append(emptyDlModule());
    parseConfigList(writeListFile(dir, "configDesc.txt", bytes), list, false, CInstalledProducts());
    ASSERT_EQ(list.count, 1001);
    EXPECT_EQ(dlText(list.modules[1000].name), "New99900");
    EXPECT_EQ(products.host.withCode(HostMsg::ConfigurationCount).size(), 1u);
    EXPECT_EQ(products.configListRequests, 1);
    parseConfigList(dir.filePath("absent.txt"), list, true, CInstalledProducts());
    EXPECT_EQ(list.count, 1001);
    EXPECT_EQ(products.host.codes().size(), 2u);
}
