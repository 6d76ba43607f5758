// The byte buffer under the INI reader. StorageRandomTest.cpp holds its edits,
// cuts, searches, copies and growth against a model over 100,000 operations;
// here what that run never does.
#include <string>

#include <gtest/gtest.h>

#include "storage/AppendixData.h"

namespace {

std::string contents(const appendixData& buffer)
{
    return std::string(buffer.getData() ? buffer.getData() : "", std::size_t(buffer.getLength()));
}

}  // namespace

TEST(AppendixData, RefusesNullTextsNegativeCountsOutsidePositionsAndAFreedBlock)
{
    appendixData buffer(8);
    buffer = "abcd";
    EXPECT_EQ(buffer.increaseBuffer(nullptr, 3), 1);
    EXPECT_EQ(buffer.increaseBuffer("abc", -2), 1);
    EXPECT_EQ(buffer.insertData(0, nullptr), 1);
    EXPECT_EQ(buffer.replaceData(0, 1, nullptr), 1);
    EXPECT_EQ(buffer.setNewOffset(-1), 1);
    EXPECT_EQ(buffer.moveForvardBufer(-1, 0), -1);
    EXPECT_EQ(buffer[-1], 0);
    EXPECT_EQ(buffer[4], 0);
    EXPECT_EQ(contents(buffer), "abcd");
    EXPECT_EQ(buffer.setNewOffset(1000), 0);  // cut to the capacity
    EXPECT_EQ(buffer.getLength(), 8);

    buffer.releaseBuffer(true);
    EXPECT_EQ(buffer.getData(), nullptr);
    EXPECT_EQ(buffer.increaseBuffer("abc", 3), 1);
    EXPECT_EQ(buffer.relocBuffer(1), -1);
    EXPECT_TRUE(buffer.IsEmpty());
    buffer = "again";  // assignment gives a freed buffer a new block
    EXPECT_EQ(contents(buffer), "again");
}

TEST(AppendixData, NamedSearchesAndThePatternLimit)
{
    appendixData buffer(64);
    buffer = "HTTP/1.0 200\r\nA: b\r\n\r\nbody.\r\n";
    const std::pair<int (appendixData::*)(int*) const, int> searches[] = {
        {&appendixData::findLineData, 14}, {&appendixData::findHTTPData, 22},
        {&appendixData::findPointData, 29}, {&appendixData::findSpaceData, 9}};
    for (const auto& [search, expectedEnd] : searches) {
        int end = -5;
        EXPECT_EQ((buffer.*search)(&end), 0);
        EXPECT_EQ(end, expectedEnd);
    }
    // Patterns are short tokens: 40 bytes and more are not searched for.
    buffer = std::string(40, 'z').c_str();
    int end = -5;
    EXPECT_EQ(buffer.findData(std::string(39, 'z').c_str(), &end), 0);
    EXPECT_EQ(end, 39);
    EXPECT_EQ(buffer.findData(std::string(40, 'z').c_str(), &end), 1);
    EXPECT_EQ(buffer.findData("", &end), 1);
}

TEST(AppendixData, GrowsWithRoomInFrontWhenAsked)
{
    appendixData buffer(4);
    buffer = "abcd";
    ASSERT_EQ(buffer.moveForvardBufer(10, 1), 0);
    ASSERT_EQ(buffer.getCapacity(), 4 + 10 + 512);
    EXPECT_EQ(std::string(buffer.getData() + buffer.getCapacity() - 4, 4), "abcd");
    EXPECT_EQ(buffer.getData()[0], 0);
}

TEST(AppendixData, AssignsOtherBuffersWithTheirNulBytes)
{
    appendixData first(2);
    appendixData second(64);
    ASSERT_EQ(second.increaseBuffer("x\0y", 3), 0);
    first = second;
    EXPECT_EQ(contents(first), std::string("x\0y", 3));
    first = first;
    EXPECT_EQ(contents(first), std::string("x\0y", 3));
    first = static_cast<const char*>(nullptr);
    EXPECT_TRUE(first.IsEmpty());
}
