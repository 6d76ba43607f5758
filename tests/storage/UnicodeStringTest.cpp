// 16-bit strings as the host's records carry them.
#include <QString>
#include <gtest/gtest.h>

#include "protocol/StorageRecords.h"
#include "storage/UnicodeString.h"

TEST(UnicodeString, ConvertsFromEverySourceAndBack)
{
    const QString text = QString::fromUtf8("Путь/файл €");
    EXPECT_EQ(CUnicodeString(text).toUnicode(), text);
    EXPECT_EQ(CUnicodeString(text.toLocal8Bit().constData()).toUnicode(), text);
    EXPECT_EQ(CUnicodeString(reinterpret_cast<const char16_t*>(text.utf16())).toUnicode(), text);

    char16_t units[] = {u'a', u'b', 0, u'c'};
    coreUncStringType record{2, units};
    EXPECT_EQ(CUnicodeString(&record).toUnicode(), QStringLiteral("ab"));
    EXPECT_EQ(CUnicodeString(static_cast<const coreUncStringType*>(nullptr)).toUnicode(), QString());
    EXPECT_EQ(CUnicodeString(static_cast<const char*>(nullptr)).toUnicode(), QString());
    EXPECT_EQ(CUnicodeString().toUnicodeC()[0], 0);
}

// Like strncpy: a shorter text is followed by NULs, a longer one fills the
// buffer without a terminator and nothing is written past the bound.
TEST(UnicodeString, CopiesIntoACallerBufferWithABound)
{
    const CUnicodeString text(QStringLiteral("abcdef"));
    char16_t buffer[8];
    std::fill(std::begin(buffer), std::end(buffer), u'#');
    EXPECT_EQ(text.toUnicodeC(buffer, 4), 4);
    EXPECT_EQ(QString::fromUtf16(buffer, 5), QStringLiteral("abcd#"));
    EXPECT_EQ(text.toUnicodeC(buffer, 8), 6);
    EXPECT_EQ(QString::fromUtf16(buffer, 8), QStringLiteral("abcdef") + QChar(0) + QChar(0));
    EXPECT_EQ(text.toUnicodeC(buffer, 0), 0);
}

TEST(UnicodeStringData, OwnsItsCopyAndStopsAtTheBound)
{
    char16_t units[] = {u'x', u'y', u'z'};
    const CUnicodeStringData bounded(units, 2);
    units[0] = u'q';
    EXPECT_EQ(bounded.toQString(), QStringLiteral("xy"));
    EXPECT_EQ(bounded.length(), 2);
    EXPECT_EQ(bounded.unicode()[2], 0);

    CUnicodeStringData copy(bounded);
    CUnicodeStringData assigned;
    assigned = copy;
    copy = CUnicodeStringData(QStringLiteral("other"));
    EXPECT_EQ(assigned.toQString(), QStringLiteral("xy"));
    EXPECT_EQ(copy.toQString(), QStringLiteral("other"));
}
