// A continued run's chosen set brought up to date with a fresh module list,
// with the download state kept by the reference host's parameter store.
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

class ChosenModules : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        ASSERT_TRUE(QDir().mkpath(downloadDir()));
        ASSERT_TRUE(profile.parse(R"({"folders": {"101": "download"}})", dir.path()));
        bridge.reset(new HostBridge(profile, &window));
        ::Initialize(&HostBridge::send, &HostBridge::post, bridge->hostObject(), nullptr);
        store.reset(new CSaveParamDownload(downloadDir()));
    }
    void TearDown() override { ::Initialize(nullptr, nullptr, nullptr, nullptr); }

    QString downloadDir() const { return dir.filePath("download"); }
    QString local(const char* name) const { return downloadDir() + "/" + name + ".gz"; }

    // A chosen record with a partly downloaded local file.
    dlModule chosenRecord(const char* name, const char* version, const char* extra, int state,
                          bool withFile = true)
    {
        dlModule module = emptyDlModule();
        setDlText(module.name, name);
        setDlText(module.version, version);
        setDlText(module.versionExtra, extra);
        setDlText(module.serverPath, QByteArray("/old/") + name + ".gz");
        setDlText(module.title, "old title");
        module.state = state;
        setDlText(module.localPath, local(name).toLocal8Bit());
        if (withFile) {
            QFile file(local(name));
            EXPECT_TRUE(file.open(QIODevice::WriteOnly));
            file.write("partial");
        }
        return module;
    }

    // Records the run as the download does before fetching.
    void recordRun(const std::vector<dlModule>& modules)
    {
        store->createLastDownload(int(modules.size()));
        for (const dlModule& module : modules) {
            chosen.addToStuct(module);
            store->saveLastDownloadModule(module, 1);
        }
    }

    dlListModule freshList(const QByteArray& lines)
    {
        dlListModule list;
        parseFileList(writeListFile(dir, "list.txt", lines), list, QString(), {},
                      CInstalledProducts(nullptr, nullptr));
        return list;
    }

    dlModule chosenAt(int index) const
    {
        dlModule out = emptyDlModule();
        chosen.getModuleInfo(index, out);
        return out;
    }

    // The stored run's records still to be fetched (state 1), as fields().
    std::vector<QByteArray> storedInStateOne()
    {
        std::vector<dlModule> out(8, emptyDlModule());
        out.resize(std::size_t(store->getLastDownloadModule(1, 8, out.data())));
        std::vector<QByteArray> result;
        for (const dlModule& module : out)
            result.push_back(fields(module));
        return result;
    }

    std::vector<QByteArray> serverPaths() const
    {
        std::vector<QByteArray> result;
        for (int i = 0; i < chosen.getModuleCount(); ++i)
            result.push_back(dlText(chosenAt(i).serverPath));
        return result;
    }

    QTemporaryDir dir;
    HostProfile profile;
    HostWindow window;
    std::unique_ptr<HostBridge> bridge;
    std::unique_ptr<CSaveParamDownload> store;
    CFileToDl chosen;
};

}  // namespace

TEST_F(ChosenModules, AnotherVersionOrExtraDeletesTheStalePartialFile)
{
    recordRun({chosenRecord("a.so", "1.0.0", "x", 2), chosenRecord("b.so", "1.0.0", "x", 1),
               chosenRecord("c.so", "1.0.0", "x", 1, false)});
    refreshChosenModules(freshList("a.so,1.1.0,x,0,/desc/a.txt,/new/a.gz,new title,2048\n"
                                   "b.so,1.0.0,y,0,/d,/f,T,1\n"
                                   "c.so,2.0.0,x,0,/d,/f,T,1\n"),
                         chosen, *store);

    EXPECT_FALSE(QFile::exists(local("a.so")));
    EXPECT_FALSE(QFile::exists(local("b.so")));
    // The fresh records with no local file and the chosen records' states; a
    // stale record whose file was already gone keeps its path.
    EXPECT_EQ(fields(chosenAt(0)), "a.so|1.1.0|x|0|/new/a.gz|/desc/a.txt|||new title|2.0 Mb|2");
    EXPECT_EQ(fields(chosenAt(1)), "b.so|1.0.0|y|0|/f|/d|||T|1 kb|1");
    EXPECT_EQ(fields(chosenAt(2)), "c.so|2.0.0|x|0|/f|/d|" + local("c.so").toLocal8Bit() + "||T|1 kb|1");
    // The stored run names the old versions, which the fresh records do not match.
    const std::vector<QByteArray> stored = storedInStateOne();
    ASSERT_EQ(stored.size(), 3u);
    EXPECT_EQ(stored[0], "a.so|1.0.0|x||/old/a.so.gz||" + local("a.so").toLocal8Bit() + "||old title||2");
}

TEST_F(ChosenModules, SameVersionKeepsTheFileAndRewritesTheStoredRecord)
{
    recordRun({chosenRecord("a.so", "1.0.0", "x", 3)});
    store->changeStateLastDownloadModule(chosenAt(0), 2);
    ASSERT_TRUE(storedInStateOne().empty());

    refreshChosenModules(freshList("a.so,1.0.0,x,0,/desc/a.txt,/new/a.gz,new title,10\n"), chosen,
                         *store);
    EXPECT_TRUE(QFile::exists(local("a.so")));
    const QByteArray fresh =
        "a.so|1.0.0|x|0|/new/a.gz|/desc/a.txt|" + local("a.so").toLocal8Bit() + "||new title|10 kb|3";
    EXPECT_EQ(fields(chosenAt(0)), fresh);
    // Stored again as still to be fetched, with the fresh fields.
    EXPECT_EQ(storedInStateOne(), std::vector<QByteArray>{fresh});
}

TEST_F(ChosenModules, OnlyTheFirstFreshRecordOfANameCountsAndAbsentOnesStay)
{
    recordRun({chosenRecord("a.so", "1.0.0", "", 1), chosenRecord("b.so", "1.0.0", "", 1)});
    refreshChosenModules(freshList("c.so,9.0.0,,0,/d,/f,T,1\n"
                                   "a.so,1.0.0,,0,/d,/first,T,1\n"
                                   "a.so,5.0.0,,0,/d,/second,T,1\n"),
                         chosen, *store);
    EXPECT_EQ(serverPaths(), (std::vector<QByteArray>{"/first", "/old/b.so.gz"}));
    EXPECT_TRUE(QFile::exists(local("a.so")));
    EXPECT_TRUE(QFile::exists(local("b.so")));
}

TEST_F(ChosenModules, GetNewModuleParsesAgainstTheCurrentConfiguration)
{
    // b.so 2.0.0 is installed in the current configuration, so the fresh
    // list does not offer it and the chosen b.so stays as chosen.
    std::vector<coreNameConfig> configs{installedConfig("Other", 1, 0, 0, false, 0, 1),
                                        installedConfig("Main", 1, 0, 0, true, 1, 2)};
    const coreModuleEntry table = installedModule("b.so", 2, 0, 0);
    ModuleListSources sources;
    sources.configs = configs.data();
    sources.configCount = 2;
    sources.autoMode = true;
    sources.autoModules = &table;
    sources.autoModuleCount = 1;
    const QString list = writeListFile(dir, "moduleDesc.txt",
                                       "a.so,3.0.0,,0,/d,/new-a,T,1\nb.so,2.0.0,,0,/d,/new-b,T,1\n");

    EXPECT_FALSE(getNewModule(list, chosen, *store, sources, CInstalledProducts()));

    recordRun({chosenRecord("a.so", "1.0.0", "", 1), chosenRecord("b.so", "1.0.0", "", 1)});
    EXPECT_TRUE(getNewModule(list, chosen, *store, sources, CInstalledProducts()));
    EXPECT_EQ(serverPaths(), (std::vector<QByteArray>{"/new-a", "/old/b.so.gz"}));
    EXPECT_FALSE(QFile::exists(local("a.so")));
    EXPECT_TRUE(QFile::exists(local("b.so")));
}
