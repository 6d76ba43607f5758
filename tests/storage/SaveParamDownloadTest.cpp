// The download state file end to end: the module's CSaveParamDownload through
// the test host to the reference host's store and its XML file on disk.
#include <cstddef>
#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <QDir>
#include <QFileInfo>
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

// Saving the start parameters replaces their node, dropping a delay set by
// hand, and leaves the last download alone.
TEST_F(SaveParamDownloadTest, StartParametersSurviveARestartAndDropADelaySetByHand)
{
    writeText(statePath(), readFile(dataFile("rdd-written-by-hand.rdd")));  // on, off, delay 15
    saver.saveStartParam(false, true);
    restartHost();
    bool autoDownload = true, showWindow = false;
    int delay = 3;
    saver.getStartParam(autoDownload, showWindow);
    saver.getDelayAutoStart(delay);
    EXPECT_EQ(std::tie(autoDownload, showWindow, delay), std::make_tuple(false, true, 3));
    EXPECT_EQ(saver.getCountStateLastDownloadModule(2), 1);
}

// A fourth module stored past the count of three is neither counted, read
// nor changed; clearing the list keeps its node with a count of 0.
TEST_F(SaveParamDownloadTest, LastDownloadOfThreeModulesByState)
{
    saver.clearLastDownload();  // nothing to clear: no node is made
    EXPECT_EQ(saver.getCountLastDownloadModule(), -1);
    const dlModule core = makeModule("core.so", "1.2.3", "7", dlStateToFetch);
    const dlModule charts = makeModule("charts.so", "2.0.0", "", dlStateFetched);
    // Long and non-ASCII fields read back whole.
    dlModule news = makeModule("модуль.so", "0.9.1", "é", dlStateToFetch);
    setDlText(news.title, QByteArray(254, 't'));
    setDlText(news.sizeText, QByteArray(254, 's'));
    setDlText(news.localPath, QByteArray("/tmp/\xd0\xb4/") + QByteArray(240, 'p'));
    saver.createLastDownload(3);
    for (const auto& [module, state] : {std::pair{core, 1}, {charts, 2}, {news, 1}, {makeModule("past.so"), 1}})
        saver.saveLastDownloadModule(module, state);
    restartHost();

    EXPECT_EQ(std::make_tuple(saver.getCountLastDownloadModule(), saver.getCountStateLastDownloadModule(1),
                              saver.getCountStateLastDownloadModule(2), saver.getCountStateLastDownloadModule(3)),
              std::make_tuple(3, 2, 1, 0));
    std::vector<dlModule> out(3, emptyDlModule());
    setDlText(out[2].name, "untouched");
    EXPECT_EQ(saver.getLastDownloadModule(1, 1, out.data()), 1);
    EXPECT_EQ(dlText(out[1].name), "");
    EXPECT_EQ(saver.getLastDownloadModule(1, 3, out.data()), 2);
    EXPECT_TRUE(sameRecord(out[0], core));
    EXPECT_TRUE(sameRecord(out[1], news));
    EXPECT_EQ(dlText(out[2].name), "untouched");

    // A change finds its counted module by name, version and core version,
    // all three.
    const QByteArray before = readFile(statePath());
    for (const auto& [name, version, core] : {std::tuple{"core.so", "1.2.3", "8"}, {"core.so", "1.2.4", "7"},
                                              {"Core.so", "1.2.3", "7"}, {"past.so", "1.0.0", ""}})
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
    EXPECT_EQ(moduleNodesInFile(), std::vector<QStringList>(4, names));
    saver.clearLastDownload();
    EXPECT_EQ(saver.getCountLastDownloadModule(), 0);
    EXPECT_TRUE(moduleNodesInFile().empty());
}

namespace {

// What stands where the module looks before the dialog reads the file.
enum class Setup { File, RefusingHost, NoHost, HostWithoutNodes, FolderIsAFile, FileIsAFolder };
// download.rdd afterwards: the empty skeleton, the same tree in the host's
// own writing, the bytes (or folder) that were there, or nothing.
enum class After { Skeleton, Rewritten, Untouched, Absent };

// What the dialog shows ("automatic download", "show window", the start
// delay; the callers' values are off, on and 3) and what a next run would
// continue: the stored count and the records counted in states 1 and 2.
using Shown = std::tuple<bool, bool, int, int, int, int>;
const Shown kCallers{false, true, 3, -1, 0, 0};
const Shown kSample{true, false, 15, 1, 0, 1};  // what every sample in tests/data holds

struct StateFileFault {
    const char* name;
    const char* file;  // a sample in tests/data, XML written here, or null: none
    Setup setup;
    After after;
    Shown shown;
};
void PrintTo(const StateFileFault& row, std::ostream* out) { *out << row.name; }

#define PARAM(key, value) "<param name=\"" key "\" value=\"" value "\"/>"
#define NODE(name, body) "<node name=\"" name "\">" body "</node>"
#define STATE_FILE(body) "<parameters>" NODE("ParametersDL", body) "</parameters>"
#define MODULE_IN(state) NODE("Module", PARAM("Name", "m.so") PARAM("State", state))

const StateFileFault kStateFileFaults[] = {
    // A file the host cannot load goes; a new one starts from the callers' values.
    {"Truncated", "xml-truncated.rdd", Setup::File, After::Skeleton, kCallers},
    {"BinaryGarbage", "xml-binary-garbage.rdd", Setup::File, After::Skeleton, kCallers},
    {"NulByte", "xml-nul-byte.rdd", Setup::File, After::Skeleton, kCallers},
    {"WrongRootElement", "xml-wrong-root-element.rdd", Setup::File, After::Skeleton, kCallers},
    {"OddLengthBase64", "xml-odd-length-base64-value.rdd", Setup::File, After::Skeleton, kCallers},
    {"EmptyFile", "xml-empty-file.rdd", Setup::File, After::Skeleton, kCallers},
    // Oddities the host reads past: the file's values show and it is kept.
    {"CrOnlyLineEnds", "xml-cr-only-line-ends.rdd", Setup::File, After::Rewritten, kSample},
    {"NoFinalLineBreak", "xml-no-final-line-break.rdd", Setup::File, After::Rewritten, kSample},
    {"UnknownElements", "xml-unknown-elements-and-attributes.rdd", Setup::File, After::Rewritten, kSample},
    // A host that refuses the file loses it: it was taken to be damaged.
    {"HostRefusesToLoad", "rdd-written-by-hand.rdd", Setup::RefusingHost, After::Absent, kCallers},
    {"NoHost", "rdd-written-by-hand.rdd", Setup::NoHost, After::Untouched, kCallers},
    {"HostOpensNoNodes", "rdd-written-by-hand.rdd", Setup::HostWithoutNodes, After::Rewritten, kCallers},
    {"NoFolderYet", nullptr, Setup::File, After::Skeleton, kCallers},
    {"FolderIsAFile", nullptr, Setup::FolderIsAFile, After::Absent, kCallers},
    {"StateFileIsAFolder", nullptr, Setup::FileIsAFolder, After::Untouched, kCallers},
    // A run killed before all its records were saved.
    {"CountPastTheRecords", STATE_FILE(NODE("LastDownload", PARAM("LastDownloadCount", "3") MODULE_IN("1")
                                                                MODULE_IN("2"))),
     Setup::File, After::Rewritten, {false, true, 3, 3, 1, 1}},
    {"CountBelowTheRecords", STATE_FILE(NODE("LastDownload", PARAM("LastDownloadCount", "1") MODULE_IN("2")
                                                                 MODULE_IN("2") MODULE_IN("1"))),
     Setup::File, After::Rewritten, {false, true, 3, 1, 0, 1}},
    {"NoCount", STATE_FILE(NODE("LastDownload", MODULE_IN("2"))), Setup::File, After::Rewritten,
     {false, true, 3, 0, 0, 0}},
    {"NoStartParameters", STATE_FILE(NODE("LastDownload", PARAM("LastDownloadCount", "1") MODULE_IN("2"))),
     Setup::File, After::Rewritten, {false, true, 3, 1, 0, 1}},
    // Edited by hand: a value that is no number reads as 0, not as the default.
    {"ValuesNotNumbers", STATE_FILE(NODE("ParamAutoDL", PARAM("AutoDownload", "yes") PARAM("ShowWindow", "on")
                                                            PARAM("DelayAutoStart", "soon"))),
     Setup::File, After::Rewritten, {false, false, 0, -1, 0, 0}},
    {"DelayUnset", STATE_FILE(NODE("ParamAutoDL", PARAM("AutoDownload", "1") PARAM("DelayAutoStart", "-1"))),
     Setup::File, After::Rewritten, {true, true, 3, -1, 0, 0}},
};

// The file's bytes, or what stands there instead.
QByteArray fileState(const QString& path)
{
    const QFileInfo info(path);
    return !info.exists() ? "<absent>" : info.isDir() ? "<folder>" : readFile(path);
}

class StateFileFaults : public SaveParamDownloadTest, public ::testing::WithParamInterface<StateFileFault> {};

}  // namespace

TEST_P(StateFileFaults, LeaveTheFileAndWhatTheDialogShowsAsExpected)
{
    const StateFileFault& row = GetParam();
    if (row.file)
        writeText(statePath(), std::strchr(row.file, '<') ? QByteArray(row.file) : readFile(dataFile(row.file)));
    if (row.setup == Setup::FolderIsAFile)
        writeText(folder, "not a folder");
    if (row.setup == Setup::FileIsAFolder)
        QDir().mkpath(statePath());
    if (row.setup == Setup::RefusingHost)
        host->extraHandler = [](unsigned int, intptr_t, intptr_t) { return 1; };
    if (row.setup == Setup::NoHost)
        host.reset();
    if (row.setup == Setup::HostWithoutNodes)
        host->extraHandler = [store = &host->store](unsigned int code, intptr_t param1, intptr_t param2) {
            return code == HostMsg::OpenNode ? 1 : store->handleMessage(code, param1, param2);
        };
    const QByteArray before = fileState(statePath());

    bool autoDownload = false, showWindow = true;
    int delay = 3;
    saver.getStartParam(autoDownload, showWindow);
    saver.getDelayAutoStart(delay);
    const int count = saver.getCountLastDownloadModule(), inState1 = saver.getCountStateLastDownloadModule(1);
    EXPECT_EQ(Shown(autoDownload, showWindow, delay, count, inState1, saver.getCountStateLastDownloadModule(2)),
              row.shown);

    ParameterTree tree;
    const QByteArray expected[] = {
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<parameters format=\"1\">\n"
        "  <node name=\"ParametersDL\"/>\n</parameters>\n",
        tree.read(before) ? tree.write() : "<not a parameter file>", before, "<absent>"};
    EXPECT_EQ(fileState(statePath()), expected[int(row.after)]);
}

INSTANTIATE_TEST_SUITE_P(DownloadRdd, StateFileFaults, ::testing::ValuesIn(kStateFileFaults),
                         [](const auto& info) { return std::string(info.param.name); });

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
