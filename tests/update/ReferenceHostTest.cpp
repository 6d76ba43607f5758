// The module's queries and its stored run against the reference host's real
// bridge: the installed configurations, module tables and configuration paths
// it answers from a profile, and a continued run's chosen set brought up to
// date with a fresh module list, kept by the host's parameter store.
#include <memory>

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>

#include "UpdateTestSupport.h"
#include "host/app/HostBridge.h"
#include "host/app/HostProfile.h"
#include "host/app/HostWindow.h"
#include "protocol/ModuleApi.h"
#include "update/ChosenModules.h"
#include "update/FileToDl.h"
#include "update/InstalledProducts.h"
#include "update/ModuleListParser.h"
#include "update/SaveParamDownload.h"

namespace {

using Texts = std::vector<QByteArray>;

const char kProfile[] = R"({"folders": {"2": "run/config", "101": "run/download"}, "installedConfigurations": [
    {"name": "Stock", "version": "3.3.8", "secondName": "Stock exchange", "configFile": "run/config/stock/terminal.cfg",
     "modules": [{"name": "core.so", "version": "3.3.8", "fourth": 77}, {"name": "charts.so", "version": "1.2.0"}]},
    {"name": "Bonds", "version": "1.0.12", "current": true, "modules": [{"name": "core.so", "version": "3.4.0"}]}]})";

class ReferenceHost : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        start(kProfile);
        ASSERT_TRUE(QDir().mkpath(local("")));
        store.reset(new CSaveParamDownload(local("")));
    }
    void TearDown() override { ::Initialize(nullptr, nullptr, nullptr, nullptr); }

    void start(const char* json)
    {
        bridge.reset();
        ASSERT_TRUE(profile.parse(json, dir.path())) << qPrintable(profile.errorString());
        bridge.reset(new HostBridge(profile, &window));
        ::Initialize(&HostBridge::send, &HostBridge::post, bridge->hostObject(), nullptr);
    }

    // A file in the download folder.
    QString local(const QString& name) const { return dir.filePath("run/download/" + name); }

    dlModule chosenAt(int index) const
    {
        dlModule out = emptyDlModule();
        chosen.getModuleInfo(index, out);
        return out;
    }

    QTemporaryDir dir;
    HostProfile profile;
    HostWindow window;
    std::unique_ptr<HostBridge> bridge;
    std::unique_ptr<CSaveParamDownload> store;
    CFileToDl chosen;
};

}  // namespace

TEST_F(ReferenceHost, AnswersConfigurationsModuleTablesAndConfigurationPathsFromTheProfile)
{
    const std::vector<coreNameConfig> configs = CInstalledProducts().configurations();
    ASSERT_EQ(describe(configs), (Texts{"Stock|Stock exchange|3.3.8|0|2", "Bonds||1.0.12|1|1"}));
    EXPECT_EQ(describe(CInstalledProducts().moduleTable(configs[0])),
              (Texts{"core.so|3.3.8|77", "charts.so|1.2.0|0"}));
    EXPECT_EQ(describe(CInstalledProducts().moduleTable(configs[1])), Texts{"core.so|3.4.0|0"});
    // A table the host does not have stays zeroed.
    coreNameConfig unknown = configs[0];
    unknown.moduleTableId = 99;
    EXPECT_EQ(describe(CInstalledProducts().moduleTable(unknown)), (Texts{"|0.0.0|0", "|0.0.0|0"}));

    // The profile's file, else the configuration folder's NAME.cfg.
    EXPECT_EQ(CInstalledProducts().GetPathToConfigFile("Stock"),
              dir.filePath("run/config/stock/terminal.cfg"));
    EXPECT_EQ(CInstalledProducts().GetPathToConfigFile("Bonds"), dir.filePath("run/config/Bonds.cfg"));
    EXPECT_EQ(CInstalledProducts().GetPathToConfigFile("Metals"), "");

    start(R"({"folders": {"2": "run/config"}})");
    EXPECT_TRUE(CInstalledProducts().configurations().empty());
    EXPECT_EQ(CInstalledProducts().GetPathToConfigFile("Stock"), "");
}

// Another version or extra text deletes the stale partial file; only the
// first fresh record of a name counts, and chosen records the list no longer
// offers stay as they were: d.so is not listed, and f.so 2.0.0 is installed
// in the automatic mode's table, which the list is parsed against. The same
// version keeps its file and is stored again to fetch. An empty set is not
// refreshed.
TEST_F(ReferenceHost, AFreshListReplacesChosenRecordsAndDeletesStalePartialFiles)
{
    const coreModuleEntry table = installedModule("f.so", 2, 0, 0);
    ModuleListSources sources;
    sources.autoMode = true, sources.autoModules = &table, sources.autoModuleCount = 1;
    const QString list = writeListFile(dir, "list.txt",
                                       "x.so,9.0.0,x,0,/d,/f,T,1\n"
                                       "a.so,1.1.0,x,0,/desc/a.txt,/new/a.gz,new title,2048\n"
                                       "a.so,1.0.0,x,0,/d,/second,T,1\n"
                                       "b.so,1.0.0,y,0,/d,/f,T,1\n"
                                       "c.so,2.0.0,x,0,/d,/f,T,1\n"
                                       "e.so,1.0.0,x,0,/desc/e.txt,/new/e.gz,new title,10\n"
                                       "f.so,2.0.0,,0,/d,/new-f,T,1\n");
    EXPECT_FALSE(getNewModule(list, chosen, *store, sources, CInstalledProducts()));
    // The run as the download records it before fetching, each file partly downloaded.
    const struct {
        const char *name, *version, *extra;
        int state;
    } run[] = {{"a.so", "1.0.0", "x", 2}, {"b.so", "1.0.0", "x", 1}, {"c.so", "1.0.0", "x", 1},
               {"d.so", "1.0.0", "x", 1}, {"e.so", "1.0.0", "x", 3}, {"f.so", "1.0.0", "", 1}};
    store->createLastDownload(6);
    for (const auto& r : run) {
        const QByteArray file = QByteArray(r.name) + ".gz";
        dlModule module = emptyDlModule();
        setDlText(module.name, r.name), setDlText(module.version, r.version), setDlText(module.versionExtra, r.extra);
        setDlText(module.serverPath, "/old/" + file), setDlText(module.title, "old title");
        setDlText(module.localPath, local(file).toLocal8Bit());
        module.state = r.state;
        writeListFile(dir, "run/download/" + file, "partial");
        chosen.addToStuct(module);
        store->saveLastDownloadModule(module, 1);
    }
    store->changeStateLastDownloadModule(chosenAt(4), 2);
    ASSERT_TRUE(QFile::remove(local("c.so.gz")));
    EXPECT_TRUE(getNewModule(list, chosen, *store, sources, CInstalledProducts()));

    EXPECT_FALSE(QFile::exists(local("a.so.gz")));
    EXPECT_FALSE(QFile::exists(local("b.so.gz")));
    for (const char* kept : {"d.so.gz", "e.so.gz", "f.so.gz"})
        EXPECT_TRUE(QFile::exists(local(kept))) << kept;
    // The fresh records with no local file and the chosen records' states; a
    // stale record whose file was already gone keeps its path.
    EXPECT_EQ(fields(chosenAt(0)), "a.so|1.1.0|x|0|/new/a.gz|/desc/a.txt|||new title|2.0 Mb|2");
    EXPECT_EQ(fields(chosenAt(1)), "b.so|1.0.0|y|0|/f|/d|||T|1 kb|1");
    EXPECT_EQ(fields(chosenAt(2)), "c.so|2.0.0|x|0|/f|/d|" + local("c.so.gz").toLocal8Bit() + "||T|1 kb|1");
    EXPECT_EQ(dlText(chosenAt(3).serverPath), "/old/d.so.gz");
    EXPECT_EQ(dlText(chosenAt(5).serverPath), "/old/f.so.gz");
    const QByteArray e =
        "e.so|1.0.0|x|0|/new/e.gz|/desc/e.txt|" + local("e.so.gz").toLocal8Bit() + "||new title|10 kb|3";
    EXPECT_EQ(fields(chosenAt(4)), e);
    // The stored run names the old versions, which the fresh records do not match.
    std::vector<dlModule> stored(8, emptyDlModule());
    ASSERT_EQ(store->getLastDownloadModule(dlStateToFetch, 8, stored.data()), 6);
    EXPECT_EQ(fields(stored[0]), "a.so|1.0.0|x||/old/a.so.gz||" + local("a.so.gz").toLocal8Bit() + "||old title||2");
    EXPECT_EQ(fields(stored[4]), e);
}
