// The offered-file record, its text fields and size text, the parsers' list
// and the chosen-for-download set.
#include <cstring>

#include <gtest/gtest.h>

#include "update/DlModule.h"
#include "update/FileToDl.h"

namespace {

dlModule record(const char* name, const char* version, const char* extra = "", int state = -1)
{
    dlModule module = emptyDlModule();
    setDlText(module.name, name);
    setDlText(module.version, version);
    setDlText(module.versionExtra, extra);
    module.state = state;
    return module;
}

QByteArray nameAt(const CFileToDl& set, int index)
{
    dlModule out = record("untouched", "0");
    set.getModuleInfo(index, out);
    return dlText(out.name);
}

}  // namespace

TEST(DlText, KeepsUpTo254BytesAndCutsLongerTextWithTerminator)
{
    dlModule module;
    std::memset(&module, 'x', sizeof module);

    setDlText(module.version, QByteArray(254, 'a'));
    EXPECT_EQ(dlText(module.version), QByteArray(254, 'a'));
    EXPECT_EQ(module.version[254], 0);

    setDlText(module.version, QByteArray(255, 'b'));
    EXPECT_EQ(dlText(module.version), QByteArray(254, 'b'));
    EXPECT_EQ(module.version[254], 0);

    setDlText(module.version, QByteArray(300, 'c'));
    EXPECT_EQ(dlText(module.version), QByteArray(254, 'c'));
    // The neighbours are untouched by a long text.
    EXPECT_EQ(module.name[254], 'x');
    EXPECT_EQ(module.versionExtra[0], 'x');

    setDlText(module.version, "1.2");
    EXPECT_EQ(dlText(module.version), "1.2");
    EXPECT_EQ(QByteArray(module.version + 3, 252), QByteArray(252, '\0'));
}

TEST(DlText, ReadsAFieldWithoutTerminatorOnlyWithinTheField)
{
    dlModule module = emptyDlModule();
    std::memset(module.title, 'T', sizeof module.title);
    std::memset(module.sizeText, 'S', sizeof module.sizeText);
    EXPECT_EQ(dlText(module.title), QByteArray(255, 'T'));
}

TEST(DlText, EmptyRecordIsAFreshlyParsedOne)
{
    const dlModule module = emptyDlModule();
    EXPECT_EQ(module.state, -1);
    EXPECT_EQ(dlText(module.name), "");
    EXPECT_EQ(dlText(module.sizeText), "");
}

TEST(DlSizeText, KilobytesUpTo1024ThenWholeMegabytesWithPointZero)
{
    EXPECT_EQ(dlSizeText(0), "0 kb");
    EXPECT_EQ(dlSizeText(1), "1 kb");
    EXPECT_EQ(dlSizeText(1023), "1023 kb");
    EXPECT_EQ(dlSizeText(1024), "1024 kb");
    EXPECT_EQ(dlSizeText(1025), "1.0 Mb");
    EXPECT_EQ(dlSizeText(2047), "1.0 Mb");
    EXPECT_EQ(dlSizeText(2048), "2.0 Mb");
    EXPECT_EQ(dlSizeText(3071), "2.0 Mb");
    EXPECT_EQ(dlSizeText(1048576), "1024.0 Mb");
    EXPECT_EQ(dlSizeText(2147483647), "2097151.0 Mb");
    EXPECT_EQ(dlSizeText(-5), "-5 kb");
}

TEST(DlListModule, AppendGrowsByOneAndCopiesEveryField)
{
    dlListModule list;
    dlModule first = record("a.so", "1.0.0", "x", 3);
    setDlText(first.sizeText, "7 kb");
    setDlText(first.auxPath, "aux");
    list.append(first);
    list.append(record("b.so", "2.0.0"));
    ASSERT_EQ(list.count, 2);
    EXPECT_EQ(std::memcmp(&list.modules[0], &first, sizeof first), 0);
    EXPECT_EQ(dlText(list.modules[1].name), "b.so");

    dlListModule moved(std::move(list));
    EXPECT_EQ(list.count, 0);
    EXPECT_EQ(list.modules, nullptr);
    EXPECT_EQ(moved.count, 2);
    moved.clear();
    EXPECT_EQ(moved.count, 0);
    EXPECT_EQ(moved.modules, nullptr);
}

TEST(FileToDl, AddKeepsOrderAndDuplicates)
{
    CFileToDl set;
    EXPECT_EQ(set.getModuleCount(), 0);
    set.addToStuct(record("a", "1"));
    set.addToStuct(record("a", "1"));
    set.addToStuct(record("b", "1"));
    EXPECT_EQ(set.getModuleCount(), 3);
    EXPECT_EQ(nameAt(set, 0), "a");
    EXPECT_EQ(nameAt(set, 1), "a");
    EXPECT_EQ(nameAt(set, 2), "b");
}

TEST(FileToDl, GetModuleInfoIgnoresIndexesOutsideTheSet)
{
    CFileToDl set;
    set.addToStuct(record("a", "1"));
    set.addToStuct(record("b", "1"));
    EXPECT_EQ(nameAt(set, 1), "b");
    EXPECT_EQ(nameAt(set, 2), "untouched");
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
    dlModule out = emptyDlModule();
    set.getModuleInfo(0, out);
    EXPECT_EQ(out.state, 0) << "same state: left alone";

    EXPECT_EQ(set.existModule(record("b", "1", "", 1)), 1);
    set.getModuleInfo(1, out);
    EXPECT_EQ(out.state, 2) << "another state: marked 2, not copied from the argument";

    EXPECT_EQ(set.existModule(record("c", "1", "", 1)), -1);
}

TEST(FileToDl, DelToStuctRemovesTheFirstMatchAndMovesTheRestDown)
{
    CFileToDl set;
    set.addToStuct(record("a", "1"));
    set.addToStuct(record("b", "1"));
    set.addToStuct(record("c", "1"));
    set.addToStuct(record("b", "1"));
    set.addToStuct(record("d", "1"));
    set.delToStuct(record("b", "1"));
    ASSERT_EQ(set.getModuleCount(), 4);
    EXPECT_EQ(nameAt(set, 0), "a");
    EXPECT_EQ(nameAt(set, 1), "c");
    EXPECT_EQ(nameAt(set, 2), "b");
    EXPECT_EQ(nameAt(set, 3), "d");

    set.delToStuct(record("d", "1"));
    ASSERT_EQ(set.getModuleCount(), 3);
    EXPECT_EQ(nameAt(set, 2), "b");
    EXPECT_EQ(nameAt(set, 3), "untouched");
}

TEST(FileToDl, DelToStuctOfAnUnknownRecordDropsTheFirstRecord)
{
    CFileToDl set;
    set.addToStuct(record("a", "1"));
    set.addToStuct(record("b", "1"));
    set.addToStuct(record("c", "1"));
    set.delToStuct(record("b", "2"));
    ASSERT_EQ(set.getModuleCount(), 2);
    EXPECT_EQ(nameAt(set, 0), "b");
    EXPECT_EQ(nameAt(set, 1), "c");

    set.delToStuct(record("zz", "1"));
    set.delToStuct(record("zz", "1"));
    EXPECT_EQ(set.getModuleCount(), 0);
}

TEST(FileToDl, DelToStuctOnAnEmptySetLeavesCountMinusOne)
{
    CFileToDl set;
    set.delToStuct(record("a", "1"));
    EXPECT_EQ(set.getModuleCount(), -1);
    EXPECT_EQ(set.existModule(record("a", "1")), -1);
    EXPECT_EQ(nameAt(set, 0), "untouched");
    EXPECT_EQ(set.changeStruct(0, record("a", "1")), -1);

    // Such a set holds nothing, so the next record becomes its first.
    set.addToStuct(record("a", "1"));
    EXPECT_EQ(set.getModuleCount(), 1);
    EXPECT_EQ(nameAt(set, 0), "a");
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
    set.addToStuct(record("a", "1"));
    set.addToStuct(record("b", "1"));
    set.clearStruct();
    EXPECT_EQ(set.getModuleCount(), 0);
    EXPECT_EQ(nameAt(set, 0), "untouched");
    set.addToStuct(record("c", "1"));
    EXPECT_EQ(nameAt(set, 0), "c");
}
