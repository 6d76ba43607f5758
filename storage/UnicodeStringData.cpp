#include "storage/UnicodeStringData.h"

#include <cstring>

CUnicodeStringData::CUnicodeStringData()
{
    text_ = new char16_t[1];
    text_[0] = 0;
}

CUnicodeStringData::CUnicodeStringData(const QString& text)
{
    assign(reinterpret_cast<const char16_t*>(text.utf16()), text.size());
}

CUnicodeStringData::CUnicodeStringData(const char16_t* text)
{
    int units = 0;
    if (text)
        while (text[units] != 0)
            ++units;
    assign(text, units);
}

CUnicodeStringData::CUnicodeStringData(const char16_t* text, int units)
{
    int length = 0;
    if (text)
        while (length < units && text[length] != 0)
            ++length;
    assign(text, length);
}

CUnicodeStringData::CUnicodeStringData(const CUnicodeStringData& other)
{
    assign(other.text_, other.length_);
}

CUnicodeStringData& CUnicodeStringData::operator=(const CUnicodeStringData& other)
{
    if (&other != this) {
        char16_t* old = text_;
        text_ = nullptr;
        assign(other.text_, other.length_);
        delete[] old;
    }
    return *this;
}

CUnicodeStringData::~CUnicodeStringData()
{
    delete[] text_;
}

QString CUnicodeStringData::toQString() const
{
    return QString::fromUtf16(text_, length_);
}

void CUnicodeStringData::assign(const char16_t* text, int units)
{
    length_ = text && units > 0 ? units : 0;
    text_ = new char16_t[std::size_t(length_) + 1];
    if (text && length_ > 0)
        std::memcpy(text_, text, sizeof(char16_t) * std::size_t(length_));
    text_[length_] = 0;
}
