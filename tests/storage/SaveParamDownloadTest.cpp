// The download state file end to end: the module's CSaveParamDownload through
// the test host to the reference host's store and its XML file on disk.
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "DlRecords.h"
#include "StorageFiles.h"
#include "StoreTestHost.h"
#include "protocol/HostMessages.h"
#include "update/SaveParamDownload.h"

namespace {

class SaveParamDownloadTest : public ::testing::Test {
protected:
    SaveParamDownloadTest()
        : folder(dir.filePath(QStringLiteral("state/sub")))
        , saver(folder)
    {
        host = std::make_unique<StoreTestHost>();
    }

    QString statePath() const { return folder + QStringLiteral("/download.rdd"); }

    void putFile(const QByteArray& bytes) { writeFile(statePath(), bytes); }

    // A new host with a new store: nothing survives but the file.
    void restartHost()
    {
        host.reset();
        host = std::make_unique<StoreTestHost>();
    }

    // The "Module" children in the file, as the host reads them.
    int moduleNodesInFile()
    {
        ParameterStore store;
        void* file = store.load(statePath());
        if (!file)
            return -1;
        ParameterNode* top = store.tree(file)->top();
        for (const auto& root : top->children)
            for (const auto& node : root->children)
                if (node->name == QStringLiteral("LastDownload"))
                    return int(node->children.size());
        return 0;
    }

    QTemporaryDir dir;
    QString folder;
    CSaveParamDownload saver;
    std::unique_ptr<StoreTestHost> host;
};

}  // namespace

TEST_F(SaveParamDownloadTest, StartParametersSurviveARestartOfTheHost)
{
    bool autoDownload = true;
    bool showWindow = false;
    saver.getStartParam(autoDownload, showWindow);  // nothing stored yet: unchanged
    EXPECT_TRUE(autoDownload);
    EXPECT_FALSE(showWindow);
    EXPECT_TRUE(QFile::exists(statePath()));  // the folder was made and the file saved

    saver.saveStartParam(true, false);
    restartHost();
    autoDownload = false;
    showWindow = true;
    saver.getStartParam(autoDownload, showWindow);
    EXPECT_TRUE(autoDownload);
    EXPECT_FALSE(showWindow);

    saver.saveStartParam(false, true);
    saver.getStartParam(autoDownload, showWindow);
    EXPECT_FALSE(autoDownload);
    EXPECT_TRUE(showWindow);
}

TEST_F(SaveParamDownloadTest, SavingStartParametersDropsTheDelay)
{
    putFile(fileBytes(dataFile("rdd-written-by-hand.rdd")));
    int delay = 3;
    saver.getDelayAutoStart(delay);
    EXPECT_EQ(delay, 15);
    bool autoDownload = false;
    bool showWindow = true;
    saver.getStartParam(autoDownload, showWindow);
    EXPECT_TRUE(autoDownload);
    EXPECT_FALSE(showWindow);

    saver.saveStartParam(true, true);
    delay = 3;
    saver.getDelayAutoStart(delay);
    EXPECT_EQ(delay, 3);
    EXPECT_FALSE(fileBytes(statePath()).contains("DelayAutoStart"));
}

TEST_F(SaveParamDownloadTest, ADelayOfMinusOneKeepsTheCallersValue)
{
    putFile("<parameters><node name=\"ParametersDL\"><node name=\"ParamAutoDL\">"
            "<param name=\"DelayAutoStart\" value=\"-1\"/></node></node></parameters>");
    int delay = 42;
    saver.getDelayAutoStart(delay);
    EXPECT_EQ(delay, 42);
}

TEST_F(SaveParamDownloadTest, LastDownloadOfThreeModulesByState)
{
    const dlModule core = makeModule("core.so", "1.2.3", "7", dlStateToFetch);
    const dlModule charts = makeModule("charts.so", "2.0.0", "", dlStateFetched);
    const dlModule news = makeModule("news.so", "0.9.1", "x", dlStateToFetch);
    saver.createLastDownload(3);
    saver.saveLastDownloadModule(core, 1);
    saver.saveLastDownloadModule(charts, 2);
    saver.saveLastDownloadModule(news, 1);
    restartHost();

    EXPECT_EQ(saver.getCountLastDownloadModule(), 3);
    EXPECT_EQ(saver.getCountStateLastDownloadModule(1), 2);
    EXPECT_EQ(saver.getCountStateLastDownloadModule(2), 1);
    EXPECT_EQ(saver.getCountStateLastDownloadModule(3), 0);

    std::vector<dlModule> out(3, emptyDlModule());
    setDlText(out[2].name, "untouched");
    EXPECT_EQ(saver.getLastDownloadModule(1, 3, out.data()), 2);
    EXPECT_TRUE(sameRecord(out[0], core));
    EXPECT_TRUE(sameRecord(out[1], news));
    EXPECT_EQ(dlText(out[2].name), "untouched");

    dlModule changed = news;
    setDlText(changed.localPath, "/tmp/dl/news.so.unpacked");
    changed.state = dlStateFetched;
    saver.changeStateLastDownloadModule(changed, 3);
    restartHost();
    EXPECT_EQ(saver.getCountStateLastDownloadModule(1), 1);
    EXPECT_EQ(saver.getCountStateLastDownloadModule(3), 1);
    dlModule found = emptyDlModule();
    EXPECT_EQ(saver.getLastDownloadModule(3, 1, &found), 1);
    EXPECT_TRUE(sameRecord(found, changed));
    EXPECT_EQ(moduleNodesInFile(), 3);
}

TEST_F(SaveParamDownloadTest, OnlyTheCountedModulesAreSeen)
{
    saver.createLastDownload(2);
    saver.saveLastDownloadModule(makeModule("a.so", "1.0.0", "", 0), 5);
    saver.saveLastDownloadModule(makeModule("b.so", "1.0.0", "", 0), 5);
    saver.saveLastDownloadModule(makeModule("c.so", "1.0.0", "", 0), 5);
    EXPECT_EQ(moduleNodesInFile(), 3);
    EXPECT_EQ(saver.getCountStateLastDownloadModule(5), 2);

    dlModule out[3] = {emptyDlModule(), emptyDlModule(), emptyDlModule()};
    EXPECT_EQ(saver.getLastDownloadModule(5, 1, out), 1);
    EXPECT_EQ(dlText(out[0].name), "a.so");
    EXPECT_EQ(dlText(out[1].name), "");
    EXPECT_EQ(saver.getLastDownloadModule(5, 3, out), 2);
    EXPECT_EQ(dlText(out[1].name), "b.so");
    EXPECT_EQ(dlText(out[2].name), "");

    // The third is beyond the count: changing it changes nothing.
    saver.changeStateLastDownloadModule(makeModule("c.so", "1.0.0", "", 0), 6);
    EXPECT_EQ(saver.getCountStateLastDownloadModule(6), 0);
    EXPECT_FALSE(fileBytes(statePath()).contains("value=\"6\""));
}

TEST_F(SaveParamDownloadTest, ACountAboveTheChildrenEndsAtTheLastChild)
{
    saver.createLastDownload(10);
    saver.saveLastDownloadModule(makeModule("a.so", "1.0.0", "", 0), 4);
    EXPECT_EQ(saver.getCountLastDownloadModule(), 10);
    EXPECT_EQ(saver.getCountStateLastDownloadModule(4), 1);
    dlModule out[2] = {emptyDlModule(), emptyDlModule()};
    EXPECT_EQ(saver.getLastDownloadModule(4, 2, out), 1);
}

TEST_F(SaveParamDownloadTest, ChangeStateNeedsNameVersionAndVersionCore)
{
    saver.createLastDownload(1);
    saver.saveLastDownloadModule(makeModule("core.so", "1.2.3", "7", 1), 1);
    const QByteArray before = fileBytes(statePath());
    saver.changeStateLastDownloadModule(makeModule("core.so", "1.2.3", "8", 1), 4);
    saver.changeStateLastDownloadModule(makeModule("core.so", "1.2.4", "7", 1), 4);
    saver.changeStateLastDownloadModule(makeModule("Core.so", "1.2.3", "7", 1), 4);
    EXPECT_EQ(fileBytes(statePath()), before);
    saver.changeStateLastDownloadModule(makeModule("core.so", "1.2.3", "7", 1), 4);
    EXPECT_EQ(saver.getCountStateLastDownloadModule(4), 1);
}

TEST_F(SaveParamDownloadTest, ClearingAndAMissingList)
{
    EXPECT_EQ(saver.getCountLastDownloadModule(), -1);
    EXPECT_EQ(saver.getCountStateLastDownloadModule(1), 0);
    saver.clearLastDownload();  // nothing to clear: no node is made
    EXPECT_EQ(saver.getCountLastDownloadModule(), -1);

    saver.createLastDownload(1);
    saver.saveLastDownloadModule(makeModule("a.so", "1.0.0", "", 0), 1);
    saver.clearLastDownload();
    EXPECT_EQ(saver.getCountLastDownloadModule(), 0);
    EXPECT_EQ(moduleNodesInFile(), 0);
}

TEST_F(SaveParamDownloadTest, EveryCallLoadsAndSavesOnce)
{
    bool a = false;
    bool s = false;
    int delay = 0;
    dlModule out = emptyDlModule();
    const std::vector<std::function<void()>> calls = {
        [&] { saver.saveStartParam(true, true); },
        [&] { saver.getStartParam(a, s); },
        [&] { saver.getDelayAutoStart(delay); },
        [&] { saver.createLastDownload(1); },
        [&] { saver.saveLastDownloadModule(makeModule("a.so", "1", "", 0), 1); },
        [&] { saver.changeStateLastDownloadModule(makeModule("a.so", "1", "", 0), 2); },
        [&] { saver.getLastDownloadModule(2, 1, &out); },
        [&] { saver.getCountStateLastDownloadModule(2); },
        [&] { saver.getCountLastDownloadModule(); },
        [&] { saver.clearLastDownload(); },
    };
    for (std::size_t i = 0; i < calls.size(); ++i) {
        host->messages.clear();
        calls[i]();
        EXPECT_EQ(host->withCode(HostMsg::LoadParameterFile).size(), 1u) << "call " << i;
        EXPECT_EQ(host->withCode(HostMsg::SaveParameterFile).size(), 1u) << "call " << i;
        EXPECT_EQ(host->store.openFileCount(), 0) << "call " << i;
    }
}

TEST_F(SaveParamDownloadTest, ADamagedFileIsDeletedAndLoadedAgain)
{
    putFile(fileBytes(dataFile("xml-truncated.rdd")));
    bool autoDownload = true;
    bool showWindow = true;
    saver.getStartParam(autoDownload, showWindow);
    EXPECT_TRUE(autoDownload);  // the callers' values stay
    EXPECT_TRUE(showWindow);
    EXPECT_EQ(host->withCode(HostMsg::LoadParameterFile).size(), 2u);
    EXPECT_EQ(host->withCode(HostMsg::SaveParameterFile).size(), 1u);
    EXPECT_EQ(fileBytes(statePath()),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<parameters format=\"1\">\n"
              "  <node name=\"ParametersDL\"/>\n"
              "</parameters>\n");

    saver.saveStartParam(false, true);
    saver.getStartParam(autoDownload, showWindow);
    EXPECT_FALSE(autoDownload);
}

TEST_F(SaveParamDownloadTest, AHostThatNeverLoadsGivesNothing)
{
    putFile("<parameters/>");
    host->extraHandler = [](unsigned int, intptr_t, intptr_t) { return 1; };
    bool autoDownload = true;
    int delay = 9;
    saver.getStartParam(autoDownload, autoDownload);
    saver.getDelayAutoStart(delay);
    dlModule out = emptyDlModule();
    EXPECT_EQ(saver.getLastDownloadModule(1, 1, &out), 0);
    EXPECT_EQ(saver.getCountStateLastDownloadModule(1), 0);
    EXPECT_EQ(saver.getCountLastDownloadModule(), -1);
    EXPECT_TRUE(autoDownload);
    EXPECT_EQ(delay, 9);
    EXPECT_TRUE(host->withCode(HostMsg::SaveParameterFile).empty());
    // Asked twice per call, with the file deleted in between.
    EXPECT_EQ(host->withCode(HostMsg::LoadParameterFile).size(), 10u);
    EXPECT_FALSE(QFile::exists(statePath()));
}

TEST(SaveParamDownloadWithoutHost, NothingIsLoaded)
{
    QTemporaryDir dir;
    CSaveParamDownload saver(dir.path());
    bool autoDownload = true;
    bool showWindow = false;
    int delay = 5;
    saver.getStartParam(autoDownload, showWindow);
    saver.getDelayAutoStart(delay);
    saver.saveStartParam(false, true);
    EXPECT_TRUE(autoDownload);
    EXPECT_FALSE(showWindow);
    EXPECT_EQ(delay, 5);
    EXPECT_EQ(saver.getCountLastDownloadModule(), -1);
    EXPECT_EQ(saver.getCountStateLastDownloadModule(0), 0);
    EXPECT_EQ(saver.getDefaultXml(), nullptr);
    EXPECT_FALSE(QFile::exists(dir.filePath(QStringLiteral("download.rdd"))));
}

TEST_F(SaveParamDownloadTest, LongAndNonAsciiFieldsReadBackWhole)
{
    dlModule module = makeModule("модуль.so", "1.0.0", "é", 2);
    setDlText(module.title, QByteArray(254, 't'));
    setDlText(module.sizeText, QByteArray(254, 's'));
    setDlText(module.localPath, QByteArray("/tmp/\xd0\xb4/") + QByteArray(240, 'p'));
    saver.createLastDownload(1);
    saver.saveLastDownloadModule(module, 7);
    restartHost();
    dlModule out = emptyDlModule();
    ASSERT_EQ(saver.getLastDownloadModule(7, 1, &out), 1);
    EXPECT_TRUE(sameRecord(out, module));
}
