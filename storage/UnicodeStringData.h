#pragma once
// An owned 16-bit NUL-terminated string, the form in which the host's records
// carry folder paths and file names, and its conversion to and from QString.
#include <QString>

class CUnicodeStringData {
public:
    CUnicodeStringData();
    explicit CUnicodeStringData(const QString& text);
    // Up to the first NUL; a null pointer gives the empty string.
    explicit CUnicodeStringData(const char16_t* text);
    // At most units units, ending early at a NUL: for buffers that may lack one.
    CUnicodeStringData(const char16_t* text, int units);
    CUnicodeStringData(const CUnicodeStringData& other);
    CUnicodeStringData& operator=(const CUnicodeStringData& other);
    ~CUnicodeStringData();

    QString toQString() const;
    // Never null; valid while this object lives and is not assigned to.
    const char16_t* unicode() const { return text_; }
    // Units without the NUL.
    int length() const { return length_; }

private:
    void assign(const char16_t* text, int units);

    char16_t* text_ = nullptr;
    int length_ = 0;
};
