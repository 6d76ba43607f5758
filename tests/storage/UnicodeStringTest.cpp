// 16-bit strings as the host's records carry them: the state file's path goes
// to the host in a bounded field.
#include <QString>
#include <gtest/gtest.h>

#include "storage/UnicodeString.h"

// Like strncpy: a shorter text is followed by NULs, a longer one fills the
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
