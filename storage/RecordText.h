#pragma once
// Copying text into and out of the fixed-size fields of host records.
#include <cstddef>
#include <cstring>

#include <QByteArray>
#include <QString>

// Copies at most N bytes of text into field and zero-fills the rest, like
// strncpy: a text of N bytes or more fills the field without a terminator,
// which is what the host expects of names "truncated to N bytes".
template <std::size_t N>
void copyToField(char (&field)[N], const QByteArray& text)
{
    const std::size_t length = qMin<std::size_t>(N, std::size_t(text.size()));
    std::memcpy(field, text.constData(), length);
    std::memset(field + length, 0, N - length);
}

// Reads a text field that may lack its terminator.
template <std::size_t N>
QByteArray fieldBytes(const char (&field)[N])
{
    return QByteArray(field, int(qstrnlen(field, N)));
}

// Reads a 16-bit text buffer that may lack its terminator.
inline QString utf16FieldText(const char16_t* buffer, std::size_t units)
{
    std::size_t length = 0;
    while (length < units && buffer[length] != 0)
        ++length;
    return QString::fromUtf16(buffer, int(length));
}

// The same for 16-bit text inside a packed record, where the field may not be
// aligned for char16_t: the units are copied out one at a time. The count
// comes from records a peer filled in, so a negative one reads nothing.
inline QString utf16TextAt(const char* address, int units)
{
    QString text;
    for (int i = 0; i < units; ++i) {
        char16_t unit;
        std::memcpy(&unit, address + 2 * i, sizeof unit);
        if (unit == 0)
            break;
        text.append(QChar(unit));
    }
    return text;
}
