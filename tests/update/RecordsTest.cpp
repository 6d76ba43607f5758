// The offered-file record, its text fields and size text, the parsers' list
// and the chosen-for-download set with the quirks of its removal.
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "UpdateTestSupport.h"
#include "update/FileToDl.h"

namespace {

using Names = std::vector<QByteArray>;

dlModule record(const char* name, const char* version = "1", const char* extra = "", int state = -1)
{
    dlModule module = emptyDlModule();
    setDlText(module.name, name), setDlText(module.version, version), setDlText(module.versionExtra, extra);
    module.state = state;
    return module;
}

// A record that differs from the others in its first, middle and last fields.
dlModule numbered(int i)
{
    const QByteArray number = QByteArray::number(i);
    dlModule module = record(("m" + number + ".so").constData(), "1.0.0", "x", i);
    setDlText(module.auxPath, "aux" + number), setDlText(module.sizeText, number + " kb");
    return module;
}

// The record at index, or a record named "untouched" when the set has none there.
dlModule at(const CFileToDl& set, int index)
{
    dlModule out = record("untouched", "0");
    set.getModuleInfo(index, out);
    return out;
}

Names namesIn(const CFileToDl& set)
{
    Names result;
    for (int i = 0; i < set.getModuleCount(); ++i)
        result.push_back(dlText(at(set, i).name));
    return result;
}

}  // namespace

TEST(DlText, CutsTo254BytesReadsNoFurtherThanTheFieldAndWritesSizesInKbOrMb)
{
    dlModule module;
    std::memset(&module, 'x', sizeof module);
    setDlText(module.version, QByteArray(300, 'c'));
    EXPECT_EQ(QByteArray(module.version, 255), QByteArray(254, 'c') + '\0');
    // The neighbours are untouched.
    EXPECT_EQ(module.name[254], 'x');
    EXPECT_EQ(module.versionExtra[0], 'x');
    // A field filled to its end without a terminator.
    std::memset(module.title, 'T', sizeof module.title);
    std::memset(module.sizeText, 'S', sizeof module.sizeText);
    EXPECT_EQ(dlText(module.title), QByteArray(255, 'T'));

    // The size text: kilobytes up to 1024, then whole megabytes with ".0".
    const std::pair<int, const char*> cases[] = {
        {0, "0 kb"},      {1024, "1024 kb"},  {1025, "1.0 Mb"},        {2047, "1.0 Mb"},
        {2048, "2.0 Mb"}, {-5, "-5 kb"},      {2147483647, "2097151.0 Mb"}};
    for (const auto& c : cases)
        EXPECT_EQ(dlSizeText(c.first), c.second) << c.first;
}

TEST(DlListModule, AppendKeepsEveryRecordWholeAsTheArrayGrows)
{
    // Counts on and just past the sizes at which the array is reallocated.
    for (int count : {1, 2, 3, 4, 5, 1000}) {
        dlListModule list;
        for (int i = 0; i < count; ++i)
            list.append(numbered(i));
        ASSERT_EQ(list.count, count);
        for (int i = 0; i < count; ++i) {
            const dlModule expected = numbered(i);
            ASSERT_EQ(std::memcmp(&list.modules[i], &expected, sizeof expected), 0) << count << ": " << i;
        }
        list.clear();
        EXPECT_TRUE(list.count == 0 && list.modules == nullptr);
    }
}

// existModule matches name, version and extra text and marks a record of
// another state fetched; delToStuct removes the first of equal records (the
// module removes only records it read from the set, so there is always a
// match); changeStruct replaces the first record of the name whatever the
// index; a cleared set is used again.
TEST(FileToDl, MatchingRemovalAndReplacementFollowTheNameNotTheIndex)
{
    CFileToDl set;
    set.addToStuct(record("a", "1.0.0", "x", 0));
    set.addToStuct(record("b", "1.0.0", "x", 4));
    for (const dlModule& other : {record("B", "1.0.0", "x"), record("b", "1.0.1", "x"),
                                  record("b", "1.0.0", "y"), record("b", "1.0.0", "")})
        EXPECT_EQ(set.existModule(other), -1) << fields(other).constData();
    EXPECT_EQ(set.existModule(record("a", "1.0.0", "x", 0)), 0);
    EXPECT_EQ(set.existModule(record("b", "1.0.0", "x", 1)), 1);
    EXPECT_EQ(at(set, 0).state, 0) << "same state: left alone";
    EXPECT_EQ(at(set, 1).state, 2) << "another state: marked 2, not copied from the argument";

    set.clearStruct();
    for (const char* name : {"a", "b", "c", "b", "d"})
        set.addToStuct(record(name));
    set.delToStuct(record("b"));
    EXPECT_EQ(namesIn(set), (Names{"a", "c", "b", "d"}));
    set.delToStuct(record("d"));
    EXPECT_EQ(namesIn(set), (Names{"a", "c", "b"}));
    EXPECT_EQ(dlText(at(set, 3).name), "untouched");
    EXPECT_EQ(dlText(at(set, -1).name), "untouched");

    set.clearStruct();
    set.addToStuct(record("a", "1.0.0", "x"));
    set.addToStuct(record("a", "2.0.0", "y"));
    dlModule replacement = record("a", "3.0.0", "z", 2);
    setDlText(replacement.localPath, "/tmp/a.gz");
    EXPECT_EQ(set.changeStruct(99, replacement), 0);
    const dlModule first = at(set, 0);
    EXPECT_EQ(std::memcmp(&first, &replacement, sizeof first), 0);
    EXPECT_EQ(dlText(at(set, 1).version), "2.0.0");
    EXPECT_EQ(set.changeStruct(0, record("b", "1.0.0")), -1);
    EXPECT_EQ(set.getModuleCount(), 2);
}
