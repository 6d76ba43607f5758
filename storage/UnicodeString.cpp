#include "storage/UnicodeString.h"

#include <cstring>

CUnicodeString::CUnicodeString(const char* text)
    : data_(QString::fromLocal8Bit(text ? text : ""))
{
}

CUnicodeString::CUnicodeString(const char16_t* text)
    : data_(text)
{
}

CUnicodeString::CUnicodeString(const QString& text)
    : data_(text)
{
}

CUnicodeString::CUnicodeString(const coreUncStringType* record)
    : data_(record ? record->text : nullptr)
{
}

int CUnicodeString::toUnicodeC(char16_t* buffer, int length) const
{
    if (!buffer || length <= 0)
        return 0;
    const int copied = data_.length() < length ? data_.length() : length;
    std::memcpy(buffer, data_.unicode(), sizeof(char16_t) * std::size_t(copied));
    for (int i = copied; i < length; ++i)
        buffer[i] = 0;
    return copied;
}
