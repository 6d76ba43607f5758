// The offered-file record, its text fields and size text, the parsers' list
// and the chosen-for-download set.
#include <cstring>
#include <initializer_list>
#include <vector>

#include <gtest/gtest.h>

#include "update/DlModule.h"
#include "update/FileToDl.h"

namespace {

using Names = std::vector<QByteArray>;

dlModule record(const char* name, const char* version = "1", const char* extra = "", int state = -1)
{
    dlModule module = emptyDlModule();
    setDlText(module.name, name);
    setDlText(module.version, version);
    setDlText(module.versionExtra, extra);
    module.state = state;
    return module;
}

// A record that differs from the others in its first, middle and last fields.
dlModule numbered(int i)
{
    const QByteArray number = QByteArray::number(i);
    dlModule module = record(("m" + number + ".so").constData(), "1.0.0", "x", i);
    setDlText(module.auxPath, "aux" + number);
    setDlText(module.sizeText, number + " kb");
    return module;
}

void add(CFileToDl& set, std::initializer_list<const char*> names)
{
    for (const char* name : names)
        set.addToStuct(record(name));
}

QByteArray nameAt(const CFileToDl& set, int index)
{
    dlModule out = record("untouched", "0");
    set.getModuleInfo(index, out);
    return dlText(out.name);
}

// The names the set holds, in order.
Names namesIn(const CFileToDl& set)
{
    Names result;
    for (int i = 0; i < set.getModuleCount(); ++i)
        result.push_back(nameAt(set, i));
    return result;
}

}  // namespace

TEST(DlText, KeepsUpTo254BytesAndCutsLongerTextWithTerminator)
{
    for (int length : {254, 255, 300}) {
        dlModule module;
        std::memset(&module, 'x', sizeof module);
        setDlText(module.version, QByteArray(length, 'c'));
        EXPECT_EQ(dlText(module.version), QByteArray(254, 'c')) << length;
        EXPECT_EQ(module.version[254], 0) << length;
        // The neighbours are untouched by a long text.
        EXPECT_EQ(module.name[254], 'x') << length;
        EXPECT_EQ(module.versionExtra[0], 'x') << length;
    }
    dlModule module;
    std::memset(&module, 'x', sizeof module);
    setDlText(module.version, "1.2");
    EXPECT_EQ(QByteArray(module.version, 255), "1.2" + QByteArray(252, '\0'));
}

TEST(DlText, ReadsAFieldWithoutTerminatorOnlyWithinTheField)
{
    dlModule module = emptyDlModule();
    std::memset(module.title, 'T', sizeof module.title);
    std::memset(module.sizeText, 'S', sizeof module.sizeText);
    EXPECT_EQ(dlText(module.title), QByteArray(255, 'T'));
}

TEST(DlSizeText, KilobytesUpTo1024ThenWholeMegabytesWithPointZero)
{
    const std::pair<int, const char*> cases[] = {
        {0, "0 kb"},          {1023, "1023 kb"},          {1024, "1024 kb"},
        {1025, "1.0 Mb"},     {2047, "1.0 Mb"},           {2048, "2.0 Mb"},
        {3071, "2.0 Mb"},     {1048576, "1024.0 Mb"},     {2147483647, "2097151.0 Mb"},
        {-5, "-5 kb"}};
    for (const auto& c : cases)
        EXPECT_EQ(dlSizeText(c.first), c.second) << c.first;
}

TEST(DlListModule, AppendKeepsEveryRecordWholeAsTheArrayGrowsAndMoves)
{
    // Counts on and just past the sizes at which the array is reallocated.
    for (int count : {1, 2, 3, 4, 5, 1000}) {
        dlListModule list;
        for (int i = 0; i < count; ++i)
            list.append(numbered(i));
        dlListModule moved(std::move(list));
        EXPECT_EQ(list.count, 0);
        EXPECT_EQ(list.modules, nullptr);
        ASSERT_EQ(moved.count, count);
        for (int i = 0; i < count; ++i) {
            const dlModule expected = numbered(i);
            ASSERT_EQ(std::memcmp(&moved.modules[i], &expected, sizeof expected), 0) << count << ": " << i;
        }
        moved.clear();
        EXPECT_EQ(moved.count, 0);
        EXPECT_EQ(moved.modules, nullptr);
    }
}

TEST(FileToDl, AddKeepsOrderAndDuplicatesAndReadsOnlyInsideTheSet)
{
    CFileToDl set;
    EXPECT_EQ(set.getModuleCount(), 0);
    add(set, {"a", "a", "b"});
    EXPECT_EQ(namesIn(set), (Names{"a", "a", "b"}));
    EXPECT_EQ(nameAt(set, 3), "untouched");
    EXPECT_EQ(nameAt(set, -1), "untouched");
}

TEST(FileToDl, ExistModuleMatchesNameVersionAndExtraExactly)
{
    CFileToDl set;
    set.addToStuct(record("a", "1.0.0", "x"));
    set.addToStuct(record("b", "1.0.0", "x"));
    EXPECT_EQ(set.existModule(record("b", "1.0.0", "x")), 1);
    EXPECT_EQ(set.existModule(record("B", "1.0.0", "x")), -1);
    EXPECT_EQ(set.existModule(record("b", "1.0.1", "x")), -1);
    EXPECT_EQ(set.existModule(record("b", "1.0.0", "y")), -1);
    EXPECT_EQ(set.existModule(record("b", "1.0.0", "")), -1);
}

TEST(FileToDl, ExistModuleMarksAStoredRecordWithAnotherStateAsChanged)
{
    CFileToDl set;
    set.addToStuct(record("a", "1", "", 0));
    set.addToStuct(record("b", "1", "", 4));
    EXPECT_EQ(set.existModule(record("a", "1", "", 0)), 0);
    EXPECT_EQ(set.existModule(record("b", "1", "", 1)), 1);
    dlModule a = emptyDlModule(), b = emptyDlModule();
    set.getModuleInfo(0, a);
    set.getModuleInfo(1, b);
    EXPECT_EQ(a.state, 0) << "same state: left alone";
    EXPECT_EQ(b.state, 2) << "another state: marked 2, not copied from the argument";
}

TEST(FileToDl, DelToStuctRemovesTheFirstMatchOrElseTheFirstRecord)
{
    // Without a match the removal still happens, from the front, and on an
    // empty set it takes the count below zero.
    const struct {
        std::initializer_list<const char*> before;
        dlModule removed;
        Names after;
        int count;
    } cases[] = {
        {{"a", "b", "c", "b", "d"}, record("b"), {"a", "c", "b", "d"}, 4},
        {{"a", "c", "b", "d"}, record("d"), {"a", "c", "b"}, 3},
        {{"a", "b", "c"}, record("b", "2"), {"b", "c"}, 2},
        {{"a"}, record("zz"), {}, 0},
        {{}, record("a"), {}, -1},
    };
    for (const auto& c : cases) {
        CFileToDl set;
        add(set, c.before);
        set.delToStuct(c.removed);
        EXPECT_EQ(set.getModuleCount(), c.count) << dlText(c.removed.name).constData();
        EXPECT_EQ(namesIn(set), c.after);
        EXPECT_EQ(nameAt(set, c.count < 0 ? 0 : c.count), "untouched");
    }
}

TEST(FileToDl, ASetWithCountMinusOneHoldsNothing)
{
    CFileToDl set;
    set.delToStuct(record("a"));
    EXPECT_EQ(set.existModule(record("a")), -1);
    EXPECT_EQ(set.changeStruct(0, record("a")), -1);
    // The next record becomes its first.
    add(set, {"a"});
    EXPECT_EQ(namesIn(set), Names{"a"});
}

TEST(FileToDl, ChangeStructMatchesTheFirstRecordByNameOnly)
{
    CFileToDl set;
    set.addToStuct(record("a", "1.0.0", "x"));
    set.addToStuct(record("a", "2.0.0", "y"));
    dlModule replacement = record("a", "3.0.0", "z", 2);
    setDlText(replacement.localPath, "/tmp/a.gz");

    EXPECT_EQ(set.changeStruct(99, replacement), 0);
    dlModule out = emptyDlModule();
    set.getModuleInfo(0, out);
    EXPECT_EQ(std::memcmp(&out, &replacement, sizeof out), 0);
    set.getModuleInfo(1, out);
    EXPECT_EQ(dlText(out.version), "2.0.0");

    EXPECT_EQ(set.changeStruct(0, record("b", "1.0.0")), -1);
    EXPECT_EQ(set.getModuleCount(), 2);
}

TEST(FileToDl, ClearStructEmptiesTheSetForReuse)
{
    CFileToDl set;
    add(set, {"a", "b"});
    set.clearStruct();
    EXPECT_EQ(set.getModuleCount(), 0);
    EXPECT_EQ(nameAt(set, 0), "untouched");
    add(set, {"c"});
    EXPECT_EQ(namesIn(set), Names{"c"});
}
