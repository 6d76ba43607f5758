// Lists of a hundred thousand lines (ListFaultsTest.cpp has the broken lists
// a server serves).
#include <vector>

#include <gtest/gtest.h>

#include "UpdateTestSupport.h"
#include "update/ConfigListParser.h"
#include "update/InstalledProducts.h"
#include "update/ModuleListParser.h"

// Every offered line is appended to what the list already holds, and a bad
// line near the end still ends the list there. For the configuration list the
// host is asked once, and not at all for a list that cannot be read.
TEST(ListRobustness, HundredThousandLinesAreAppendedAndAskTheHostOnce)
{
    // Every module is installed at 1.0.0; every hundredth line offers 1.0.1.
    std::vector<coreModuleEntry> installed;
    for (int i = 0; i < 1000; ++i)
        installed.push_back(installedModule(QByteArray("m" + QByteArray::number(i) + ".so"), 1, 0, 0));
    QByteArray bytes;
    for (int i = 0; i < 100000; ++i) {
        const QByteArray n = QByteArray::number(i);
        bytes += "m" + QByteArray::number(i % 1000) + ".so," + (i % 100 == 99 ? "1.0.1" : "1.0.0") + ",,0,/d/" + n
                 + ",/f/" + n + ",T," + n + "\n";
    }
    ModuleListSources sources;
    sources.autoMode = true, sources.autoModules = installed.data(), sources.autoModuleCount = int(installed.size());
    QTemporaryDir dir;
    for (const QByteArray& tail : {QByteArray(), QByteArray("bad line\nm5.so,9.0.0,,0,/d,/f,T,1\n")}) {
        dlListModule list;
        list.append(emptyDlModule());
        parseFileList(writeListFile(dir, "moduleDesc.txt", bytes + tail), list, QString(), sources,
                      CInstalledProducts(nullptr, nullptr));
        ASSERT_EQ(list.count, 1001);
        EXPECT_EQ(fields(list.modules[1000]), "m999.so|1.0.1||0|/f/99999|/d/99999|||T|97.0 Mb|-1");
    }

    ProductsHost products;
    products.configs = {installedConfig("Same", 1, 0, 0)};
    QByteArray configs;
    for (int i = 0; i < 100000; ++i)
        configs += (i % 100 == 0 ? "New" + QByteArray::number(i) : QByteArray("Same"))
                 + ",1.0.0,/m,/d,Title, with, commas\n";
    dlListModule list;
    list.append(emptyDlModule());
    parseConfigList(writeListFile(dir, "configDesc.txt", configs), list, false, CInstalledProducts());
    ASSERT_EQ(list.count, 1001);
    EXPECT_EQ(dlText(list.modules[1000].name), "New99900");
    EXPECT_EQ(products.host.codes(),
              (std::vector<unsigned int>{HostMsg::ConfigurationCount, HostMsg::ConfigurationList}));
    parseConfigList(dir.filePath("absent.txt"), list, true, CInstalledProducts());
    EXPECT_EQ(list.count, 1001);
    EXPECT_EQ(products.host.codes().size(), 2u);
}
