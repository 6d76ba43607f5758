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

TEST(AppendixData, AppendsAndGrowsToLengthPlusExtraPlusSlack)
{
    appendixData buffer(10);
    EXPECT_TRUE(buffer.IsEmpty());
    EXPECT_EQ(buffer.getMark(), -1);
    fill(buffer, "0123456789");
    EXPECT_EQ(buffer.getCapacity(), 10);
    ASSERT_EQ(buffer.increaseBuffer("abcde", 5), 0);
    EXPECT_EQ(buffer.getCapacity(), 527);
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

TEST(AppendixData, InsertsAndReplacesInPlace)
{
    appendixData buffer(4);
    fill(buffer, "cd");
    ASSERT_EQ(buffer.insertData(0, "ab"), 0);
    EXPECT_EQ(contents(buffer), "abcd");
    ASSERT_EQ(buffer.replaceData(1, 3, "X"), 0);
    EXPECT_EQ(contents(buffer), "aXd");
    ASSERT_EQ(buffer.insertData(3, "!"), 0);
    EXPECT_EQ(contents(buffer), "aXd!");
    ASSERT_EQ(buffer.replaceData(0, 4, ""), 0);
    EXPECT_TRUE(buffer.IsEmpty());
}

TEST(AppendixData, EditsThatGrowKeepTwiceTheDataPlusSlack)
{
    appendixData buffer(4);
    fill(buffer, "abcd");
    ASSERT_EQ(buffer.insertData(2, "XY"), 0);
    EXPECT_EQ(contents(buffer), "abXYcd");
    EXPECT_EQ(buffer.getCapacity(), 4 + (4 + 2) + 512);

    appendixData other(4);
    fill(other, "abcd");
    ASSERT_EQ(other.replaceData(1, 2, "123"), 0);
    EXPECT_EQ(contents(other), "a123cd");
    EXPECT_EQ(other.getCapacity(), 4 + (4 + 3) + 512);
}

TEST(AppendixData, RefusesPositionsOutsideTheData)
{
    appendixData buffer(16);
    fill(buffer, "abcd");
    EXPECT_EQ(buffer.insertData(-1, "x"), 1);
    EXPECT_EQ(buffer.insertData(5, "x"), 1);
    EXPECT_EQ(buffer.insertData(0, nullptr), 1);
    EXPECT_EQ(buffer.replaceData(3, 2, "x"), 1);
    EXPECT_EQ(buffer.replaceData(-1, 2, "x"), 1);
    EXPECT_EQ(buffer.replaceData(2, 5, "x"), 1);
    EXPECT_EQ(buffer.relocBuffer(-1), -1);
    EXPECT_EQ(buffer.setNewOffset(-1), 1);
    EXPECT_EQ(buffer[-1], 0);
    EXPECT_EQ(buffer[4], 0);
    EXPECT_EQ(contents(buffer), "abcd");
}

TEST(AppendixData, DropsBytesFromTheFrontAndMovesTheMark)
{
    appendixData buffer(32);
    fill(buffer, "0123456789");
    buffer.setMark(3);
    EXPECT_EQ(buffer.cutBuffer(5), 0);
    EXPECT_EQ(contents(buffer), "56789");
    EXPECT_EQ(buffer.getMark(), -1);

    fill(buffer, "0123456789");
    buffer.setMark(9);
    buffer.cutBuffer(5);
    EXPECT_EQ(buffer.getMark(), 4);

    buffer.setMark(2);
    EXPECT_EQ(buffer.cutBuffer(2), 0);  // a mark that reaches 0 is unset
    EXPECT_EQ(buffer.getMark(), -1);
    EXPECT_EQ(contents(buffer), "789");

    EXPECT_EQ(buffer.relocBuffer(7), 0);  // more than there is empties the buffer
    EXPECT_TRUE(buffer.IsEmpty());
    EXPECT_EQ(buffer.relocBuffer(1), -1);
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

TEST(AppendixData, FindsPatternsFromAPosition)
{
    appendixData buffer(32);
    fill(buffer, "ab ab ab");
    int from = -1;
    int end = 0;
    EXPECT_EQ(buffer.findData(from, "ab", &end), 0);
    EXPECT_EQ(from, 0);
    EXPECT_EQ(end, 2);
    from = 1;
    EXPECT_EQ(buffer.findData(from, "ab", &end), 0);
    EXPECT_EQ(from, 3);
    EXPECT_EQ(end, 5);
    from = 7;
    EXPECT_EQ(buffer.findData(from, "ab", &end), 1);
    EXPECT_EQ(end, 8);  // failure inside the data reports its length
    from = 8;
    EXPECT_EQ(buffer.findData(from, "ab", &end), 1);
    EXPECT_EQ(end, 0);  // starting at the end reports 0
}

TEST(AppendixData, ReadsLinesOneByOne)
{
    appendixData buffer(32);
    fill(buffer, "x\r\ny");
    char line[16];
    int pos = 0;
    ASSERT_EQ(buffer.findOneStr(pos, line, 15), 0);
    EXPECT_STREQ(line, "x\r\n");
    EXPECT_EQ(pos, 3);
    ASSERT_EQ(buffer.findOneStr(pos, line, 15), 0);
    EXPECT_STREQ(line, "y");
    EXPECT_EQ(pos, 4);
    EXPECT_EQ(buffer.findOneStr(pos, line, 15), 1);

    // A line longer than the copy bound is cut, but pos still moves past it.
    fill(buffer, "abcdefgh\nz");
    pos = 0;
    char shortLine[4];
    ASSERT_EQ(buffer.findOneStr(pos, shortLine, 3), 0);
    EXPECT_STREQ(shortLine, "abc");
    EXPECT_EQ(pos, 9);
}

TEST(AppendixData, CopiesFromTheFrontWithoutConsuming)
{
    appendixData buffer(32);
    char out[8];
    int n = 5;
    buffer.getDataFromBuff(out, &n);
    EXPECT_EQ(n, 0);
    EXPECT_EQ(out[0], 0);

    fill(buffer, "abcdef");
    n = 4;
    buffer.getDataFromBuff(out, &n);
    EXPECT_EQ(n, 4);
    EXPECT_EQ(std::string(out, 4), "abcd");
    n = 8;
    buffer.getDataFromBuff(out, &n);
    EXPECT_EQ(n, 6);
    EXPECT_EQ(contents(buffer), "abcdef");
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
