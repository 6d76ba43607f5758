// The byte buffer under the INI reader and the socket line buffers.
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "storage/AppendixData.h"

namespace {

std::string contents(const appendixData& buffer)
{
    return std::string(buffer.getData() ? buffer.getData() : "", std::size_t(buffer.getLength()));
}

void fill(appendixData& buffer, const std::string& bytes)
{
    buffer.releaseBuffer(false);
    ASSERT_EQ(buffer.increaseBuffer(bytes.data(), int(bytes.size())), 0);
}

}  // namespace

// The growth rule with its numbers written out; StorageRandomTest.cpp holds
// the buffer's edits (whose growth keeps room for twice the data), cuts,
// searches and copies against a model of the same rule over 100,000
// operations.
TEST(AppendixData, GrowsToLengthPlusExtraPlusSlack)
{
    appendixData buffer(10);
    EXPECT_TRUE(buffer.IsEmpty());
    EXPECT_EQ(buffer.getMark(), -1);
    fill(buffer, "0123456789");
    EXPECT_EQ(buffer.getCapacity(), 10);
    ASSERT_EQ(buffer.increaseBuffer("abcde", 5), 0);
    EXPECT_EQ(buffer.getCapacity(), 10 + 5 + 512);
    EXPECT_EQ(contents(buffer), "0123456789abcde");
}

TEST(AppendixData, RefusesAppendsWithoutSourceBytesOrBlock)
{
    appendixData buffer(8);
    EXPECT_EQ(buffer.increaseBuffer(nullptr, 3), 1);
    EXPECT_EQ(buffer.increaseBuffer("abc", 0), 1);
    EXPECT_EQ(buffer.increaseBuffer("abc", -2), 1);
    EXPECT_TRUE(buffer.IsEmpty());

    buffer.releaseBuffer(true);
    EXPECT_EQ(buffer.getData(), nullptr);
    EXPECT_EQ(buffer.increaseBuffer("abc", 3), 1);
    EXPECT_TRUE(buffer.IsEmpty());
    EXPECT_EQ(buffer.relocBuffer(1), -1);
    // Assignment gives a freed buffer a new block.
    buffer = "again";
    EXPECT_EQ(contents(buffer), "again");
}

TEST(AppendixData, RefusesANullTextAndPositionsOutsideTheData)
{
    appendixData buffer(16);
    fill(buffer, "abcd");
    EXPECT_EQ(buffer.insertData(0, nullptr), 1);
    EXPECT_EQ(buffer.setNewOffset(-1), 1);
    EXPECT_EQ(buffer[-1], 0);
    EXPECT_EQ(buffer[4], 0);
    EXPECT_EQ(contents(buffer), "abcd");
}

TEST(AppendixData, FindsPatternsFromTheFront)
{
    appendixData buffer(32);
    fill(buffer, "a\r\nb");
    int end = -5;
    EXPECT_EQ(buffer.findLineData(&end), 0);
    EXPECT_EQ(end, 3);
    EXPECT_EQ(buffer.findSpaceData(&end), 1);
    EXPECT_EQ(end, 0);

    fill(buffer, "HTTP/1.0 200\r\nA: b\r\n\r\nbody.\r\n");
    EXPECT_EQ(buffer.findHTTPData(&end), 0);
    EXPECT_EQ(end, 22);
    EXPECT_EQ(buffer.findPointData(&end), 0);
    EXPECT_EQ(end, 29);
    EXPECT_EQ(buffer.findSpaceData(&end), 0);
    EXPECT_EQ(end, 9);

    // Patterns are short tokens: 40 bytes and more are not searched for.
    const std::string long39(39, 'z');
    const std::string long40(40, 'z');
    fill(buffer, long40);
    EXPECT_EQ(buffer.findData(long39.c_str(), &end), 0);
    EXPECT_EQ(end, 39);
    EXPECT_EQ(buffer.findData(long40.c_str(), &end), 1);
    EXPECT_EQ(buffer.findData("", &end), 1);
}

TEST(AppendixData, GrowsWithRoomInFrontWhenAsked)
{
    appendixData buffer(4);
    fill(buffer, "abcd");
    ASSERT_EQ(buffer.moveForvardBufer(10, 1), 0);
    ASSERT_EQ(buffer.getCapacity(), 4 + 10 + 512);
    EXPECT_EQ(std::string(buffer.getData() + buffer.getCapacity() - 4, 4), "abcd");
    EXPECT_EQ(buffer.getData()[0], 0);
    EXPECT_EQ(buffer.moveForvardBufer(-1, 0), -1);
}

TEST(AppendixData, AssignsStringsAndBuffers)
{
    appendixData first(2);
    first = "a longer text than the block";
    EXPECT_EQ(contents(first), "a longer text than the block");
    appendixData second(64);
    fill(second, std::string("x\0y", 3));
    first = second;
    EXPECT_EQ(contents(first), std::string("x\0y", 3));
    first = first;
    EXPECT_EQ(contents(first), std::string("x\0y", 3));
    first = static_cast<const char*>(nullptr);
    EXPECT_TRUE(first.IsEmpty());
    EXPECT_EQ(second.setNewOffset(1000), 0);
    EXPECT_EQ(second.getLength(), 64);
}
