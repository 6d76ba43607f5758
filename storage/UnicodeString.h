#pragma once
// A 16-bit string as the host's records carry it, built from whatever the
// caller has at hand: local 8-bit text, a 16-bit array, a QString or the
// host's string record.
#include <QString>

#include "protocol/StorageRecords.h"
#include "storage/UnicodeStringData.h"

class CUnicodeString {
public:
    CUnicodeString() = default;
    // Local 8-bit text up to its NUL; null gives the empty string.
    explicit CUnicodeString(const char* text);
    explicit CUnicodeString(const char16_t* text);
    explicit CUnicodeString(const QString& text);
    // Only the record's text is used; a null record or text gives "".
    explicit CUnicodeString(const coreUncStringType* record);

    QString toUnicode() const { return data_.toQString(); }
    // NUL-terminated, valid while this object lives.
    const char16_t* toUnicodeC() const { return data_.unicode(); }
    // Copies at most length units into buffer, like strncpy: a shorter text
    // is followed by NULs up to length, a text of length units or more fills
    // the buffer without a terminator. Returns the units of text copied.
    int toUnicodeC(char16_t* buffer, int length) const;

private:
    CUnicodeStringData data_;
};
