// The download state file end to end: the module's CSaveParamDownload through
// the test host to the reference host's store and its XML file on disk.
#include <cstddef>
#include <cstring>
#include <memory>
#include <tuple>
#include <utility>
#include <vector>

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "StorageFiles.h"
#include "protocol/HostMessages.h"
#include "storage/UnicodeString.h"
#include "update/SaveParamDownload.h"

namespace {

// Every text field filled with text of its own, with characters the XML
// file must escape, spaces at both ends and non-ASCII text.
dlModule makeModule(const char* name, const char* version = "1.0.0", const char* versionExtra = "",
                    int state = 0)
{
    dlModule module = emptyDlModule();
    setDlText(module.name, name);
    setDlText(module.version, version);
    setDlText(module.versionExtra, versionExtra);
    char(*fields[])[kDlTextSize] = {&module.type,    &module.serverPath, &module.descPath, &module.localPath,
                                    &module.auxPath, &module.title,      &module.sizeText};
    for (std::size_t i = 0; i < std::size(fields); ++i)
        setDlText(*fields[i], "  " + QByteArray::number(int(i)) + " <&\"> Загрузки " + name + "  ");
    module.state = state;
    return module;
}

// Fields hold their text and zeros after it, so equal records are equal bytes
// up to the end of the last field (the padding behind it is no field).
bool sameRecord(const dlModule& actual, const dlModule& expected)
{
    return std::memcmp(&actual, &expected, offsetof(dlModule, sizeText) + kDlTextSize) == 0;
}

class SaveParamDownloadTest : public ::testing::Test {
protected:
    QString statePath() const { return folder + QStringLiteral("/download.rdd"); }

    // Every call hands the file it loaded back to be saved; the tests call
    // each of them.
    void TearDown() override { EXPECT_EQ(host ? host->store.openFileCount() : 0, 0); }

    // A new host with a new store: nothing survives but the file.
    void restartHost()
    {
        TearDown();
        host = std::make_unique<StoreTestHost>();
    }

    std::pair<bool, bool> startParam(bool autoDownload, bool showWindow)
    {
        saver.getStartParam(autoDownload, showWindow);
        return {autoDownload, showWindow};
    }

    int delayAutoStart(int delay)
    {
        saver.getDelayAutoStart(delay);
        return delay;
    }

    // The parameter names of each "Module" node in the file, as the host reads
    // them; one entry per node.
    std::vector<QStringList> moduleNodesInFile()
    {
        ParameterStore store;
        std::vector<QStringList> nodes;
        for (const auto& root : store.tree(store.load(statePath()))->top()->children)
            for (const auto& last : root->children)
                for (const auto& module : last->children)
                    if (last->name == QStringLiteral("LastDownload")) {
                        nodes.emplace_back();
                        for (const auto& parameter : module->parameters)
                            nodes.back() << parameter.first;
                    }
        return nodes;
    }

    QTemporaryDir dir;
    QString folder = dir.filePath(QStringLiteral("state/sub"));
    CSaveParamDownload saver{folder};
    std::unique_ptr<StoreTestHost> host = std::make_unique<StoreTestHost>();
};

}  // namespace

// A delay set by hand is read unless it is -1, and saving the start
// parameters drops it.
TEST_F(SaveParamDownloadTest, StartParametersSurviveARestartAndADelaySetByHand)
{
    EXPECT_EQ(startParam(true, false), std::make_pair(true, false));  // nothing stored: unchanged
    EXPECT_TRUE(QFile::exists(statePath()));  // the folder was made and the file saved
    saver.saveStartParam(true, false);
    restartHost();
    EXPECT_EQ(startParam(false, true), std::make_pair(true, false));
    saver.saveStartParam(false, true);
    EXPECT_EQ(startParam(true, false), std::make_pair(false, true));

    writeText(statePath(), "<parameters><node name=\"ParametersDL\"><node name=\"ParamAutoDL\">"
                           "<param name=\"DelayAutoStart\" value=\"-1\"/></node></node></parameters>");
    EXPECT_EQ(delayAutoStart(42), 42);
    writeText(statePath(), readFile(dataFile("rdd-written-by-hand.rdd")));
    EXPECT_EQ(delayAutoStart(3), 15);
    EXPECT_EQ(startParam(false, true), std::make_pair(true, false));
    saver.saveStartParam(true, true);
    EXPECT_EQ(delayAutoStart(3), 3);
}

TEST_F(SaveParamDownloadTest, LastDownloadOfThreeModulesByState)
{
    const dlModule core = makeModule("core.so", "1.2.3", "7", dlStateToFetch);
    const dlModule charts = makeModule("charts.so", "2.0.0", "", dlStateFetched);
    // Long and non-ASCII fields read back whole.
    dlModule news = makeModule("модуль.so", "0.9.1", "é", dlStateToFetch);
    setDlText(news.title, QByteArray(254, 't'));
    setDlText(news.sizeText, QByteArray(254, 's'));
    setDlText(news.localPath, QByteArray("/tmp/\xd0\xb4/") + QByteArray(240, 'p'));
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

    // A change finds its module by name, version and core version, all three.
    const QByteArray before = readFile(statePath());
    for (const auto& [name, version, core] : {std::tuple{"core.so", "1.2.3", "8"}, {"core.so", "1.2.4", "7"},
                                              {"Core.so", "1.2.3", "7"}})
        saver.changeStateLastDownloadModule(makeModule(name, version, core), 3);
    EXPECT_EQ(readFile(statePath()), before);
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
    // The file's names, not the record's: "Date" holds the title,
    // "TypeDownload" the record's state, "NameConfig" the auxiliary path.
    const QStringList names = {"Date", "LocalPath", "Name", "NameConfig", "Path", "PathDesc",
                               "Size", "State", "Type", "TypeDownload", "Version", "VersionCore"};
    EXPECT_EQ(moduleNodesInFile(), std::vector<QStringList>(3, names));
}

// Modules past the count are not seen; a count past the modules ends at the
// last one. Without the list the count is -1; clearing it leaves 0.
TEST_F(SaveParamDownloadTest, TheCountBoundsTheModulesSeen)
{
    saver.clearLastDownload();  // nothing to clear: no node is made
    EXPECT_EQ(saver.getCountLastDownloadModule(), -1);
    EXPECT_EQ(saver.getCountStateLastDownloadModule(0), 0);
    saver.createLastDownload(2);
    for (const char* name : {"a.so", "b.so", "c.so"})
        saver.saveLastDownloadModule(makeModule(name), 5);
    EXPECT_EQ(moduleNodesInFile().size(), 3u);
    EXPECT_EQ(saver.getCountStateLastDownloadModule(5), 2);

    dlModule out[3] = {emptyDlModule(), emptyDlModule(), emptyDlModule()};
    EXPECT_EQ(saver.getLastDownloadModule(5, 1, out), 1);
    EXPECT_EQ(dlText(out[1].name), "");
    EXPECT_EQ(saver.getLastDownloadModule(5, 3, out), 2);
    EXPECT_EQ(dlText(out[0].name) + dlText(out[1].name) + dlText(out[2].name), "a.sob.so");

    // The third is beyond the count: changing it changes nothing.
    saver.changeStateLastDownloadModule(makeModule("c.so"), 6);
    EXPECT_EQ(saver.getCountStateLastDownloadModule(6), 0);
    EXPECT_FALSE(readFile(statePath()).contains("value=\"6\""));

    saver.createLastDownload(10);
    saver.saveLastDownloadModule(makeModule("a.so"), 4);
    EXPECT_EQ(saver.getCountLastDownloadModule(), 10);
    EXPECT_EQ(saver.getCountStateLastDownloadModule(4), 1);
    EXPECT_EQ(saver.getLastDownloadModule(4, 2, out), 1);
    saver.clearLastDownload();
    EXPECT_EQ(saver.getCountLastDownloadModule(), 0);
    EXPECT_TRUE(moduleNodesInFile().empty());
}

// A damaged state file is deleted and loaded again, the callers' values
// staying; files with tolerable oddities read like the clean one.
TEST_F(SaveParamDownloadTest, ADamagedFileIsDeletedAndLoadedAgain)
{
    for (const char* name : {"xml-truncated.rdd", "xml-binary-garbage.rdd", "xml-nul-byte.rdd",
                             "xml-wrong-root-element.rdd", "xml-odd-length-base64-value.rdd", "xml-empty-file.rdd"}) {
        SCOPED_TRACE(name);
        restartHost();
        writeText(statePath(), readFile(dataFile(name)));
        EXPECT_EQ(startParam(true, true), std::make_pair(true, true));
        EXPECT_EQ(host->withCode(HostMsg::LoadParameterFile).size(), 2u);
        EXPECT_EQ(host->withCode(HostMsg::SaveParameterFile).size(), 1u);
        EXPECT_EQ(readFile(statePath()), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<parameters format=\"1\">\n"
                                         "  <node name=\"ParametersDL\"/>\n</parameters>\n");
    }
    saver.saveStartParam(false, true);
    EXPECT_EQ(startParam(true, true), std::make_pair(false, true));
    for (const char* name :
         {"xml-cr-only-line-ends.rdd", "xml-no-final-line-break.rdd", "xml-unknown-elements-and-attributes.rdd"}) {
        SCOPED_TRACE(name);
        writeText(statePath(), readFile(dataFile(name)));
        EXPECT_EQ(startParam(false, true), std::make_pair(true, false));
        EXPECT_EQ(delayAutoStart(3), 15);
    }
}

// A host that refuses every load, then no host at all: the callers' values
// stay, the counts are empty and no file is saved.
TEST_F(SaveParamDownloadTest, AHostThatNeverLoadsGivesNothing)
{
    writeText(statePath(), "<parameters/>");
    host->extraHandler = [](unsigned int, intptr_t, intptr_t) { return 1; };
    for (const bool withHost : {true, false}) {
        if (!withHost)
            host.reset();
        dlModule out = emptyDlModule();
        saver.saveStartParam(false, true);
        EXPECT_EQ(startParam(true, false), std::make_pair(true, false));
        EXPECT_EQ(delayAutoStart(9), 9);
        EXPECT_EQ(saver.getLastDownloadModule(1, 1, &out), 0);
        EXPECT_EQ(saver.getCountStateLastDownloadModule(1), 0);
        EXPECT_EQ(saver.getCountLastDownloadModule(), -1);
        EXPECT_FALSE(QFile::exists(statePath()));
        if (withHost) {
            EXPECT_TRUE(host->withCode(HostMsg::SaveParameterFile).empty());
            // Asked twice per call, with the file deleted in between.
            EXPECT_EQ(host->withCode(HostMsg::LoadParameterFile).size(), 12u);
        }
    }
    EXPECT_EQ(saver.getDefaultXml(), nullptr);
}

// The state file's path goes to the host in a bounded 16-bit field. Like
// strncpy: a shorter text is followed by NULs, a longer one fills the
// buffer without a terminator and nothing is written past the bound.
TEST(UnicodeString, CopiesIntoACallerBufferWithABound)
{
    const CUnicodeString text(QString::fromUtf8("abcdé"));
    char16_t buffer[8];
    std::fill(std::begin(buffer), std::end(buffer), u'#');
    EXPECT_EQ(text.toUnicodeC(buffer, 4), 4);
    EXPECT_EQ(QString::fromUtf16(buffer, 5), QStringLiteral("abcd#"));
    EXPECT_EQ(text.toUnicodeC(buffer, 8), 5);
    EXPECT_EQ(QString::fromUtf16(buffer, 8), QString::fromUtf8("abcdé") + QChar(0) + QChar(0) + QChar(0));
    EXPECT_EQ(text.toUnicodeC(buffer, 0), 0);
}
