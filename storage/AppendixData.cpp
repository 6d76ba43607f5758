#include "storage/AppendixData.h"

#include <climits>
#include <cstring>
#include <new>

namespace {

// Length of a NUL-terminated pattern, or -1 when it is empty or too long to
// be one of the short tokens the searches are meant for.
int patternLength(const char* pattern)
{
    if (!pattern)
        return -1;
    const std::size_t length = strnlen(pattern, appendixData::kMaxPattern);
    return length == 0 || length >= std::size_t(appendixData::kMaxPattern) ? -1 : int(length);
}

// Length of a text to be inserted, or -1 when it would not fit an int buffer.
long long textLength(const char* text)
{
    return text ? (long long)std::strlen(text) : -1;
}

}  // namespace

appendixData::appendixData(int initialCapacity)
{
    if (initialCapacity > 0) {
        data = new (std::nothrow) char[initialCapacity]();
        if (data)
            capacity = initialCapacity;
    }
}

appendixData::~appendixData()
{
    delete[] data;
}

appendixData& appendixData::operator=(const char* text)
{
    const long long add = text ? (long long)std::strlen(text) : 0;
    if (add > INT_MAX)
        return *this;
    if (add > capacity && setNewLenBuf(int(add)) != 0)
        return *this;
    if (add > 0)
        std::memcpy(data, text, std::size_t(add));
    length = int(add);
    return *this;
}

appendixData& appendixData::operator=(appendixData& other)
{
    if (&other == this)
        return *this;
    if (other.length > capacity && setNewLenBuf(other.length) != 0)
        return *this;
    if (other.length > 0)
        std::memcpy(data, other.data, std::size_t(other.length));
    length = other.length;
    return *this;
}

int appendixData::setNewOffset(int n)
{
    if (n < 0)
        return 1;
    length = n < capacity ? n : capacity;
    return 0;
}

int appendixData::increaseBuffer(const char* src, int n)
{
    if (!src || n <= 0 || !data)
        return 1;
    if ((long long)length + n > capacity && moveForvardBufer(n, 0) != 0)
        return 1;
    std::memcpy(data + length, src, std::size_t(n));
    length += n;
    return 0;
}

void appendixData::getDataFromBuff(char* out, int* n) const
{
    if (!out || !n)
        return;
    const int count = *n < length ? *n : length;
    if (count <= 0 || !data) {
        out[0] = 0;
        *n = 0;
        return;
    }
    std::memcpy(out, data, std::size_t(count));
    *n = count;
}

void appendixData::releaseBuffer(bool freeBlock)
{
    if (freeBlock) {
        delete[] data;
        data = nullptr;
        capacity = 0;
    } else if (data && capacity > 0) {
        data[0] = 0;
    }
    length = 0;
}

int appendixData::moveForvardBufer(int extra, int toEnd)
{
    if (extra < 0)
        return -1;
    const long long newCapacity = (long long)length + extra + kGrowthSlack;
    if (newCapacity > INT_MAX)
        return -1;
    char* block = new (std::nothrow) char[std::size_t(newCapacity)]();
    if (!block)
        return -1;
    if (length > 0) {
        char* target = toEnd ? block + (newCapacity - length) : block;
        std::memcpy(target, data, std::size_t(length));
    }
    delete[] data;
    data = block;
    capacity = int(newCapacity);
    return 0;
}

int appendixData::setNewLenBuf(int n)
{
    if (capacity < n)
        return moveForvardBufer(n, 0);
    return 0;
}

int appendixData::relocBuffer(int n)
{
    if (!data || length == 0 || n < 0)
        return -1;
    const int remaining = length - n;
    if (remaining < 1) {
        releaseBuffer(false);
        return 0;
    }
    std::memmove(data, data + n, std::size_t(remaining));
    length = remaining;
    return 0;
}

int appendixData::cutBuffer(int n)
{
    const int result = relocBuffer(n);
    if (mark > 0) {
        mark -= n;
        if (mark <= 0)
            mark = -1;
    }
    return result;
}

bool appendixData::ensureCapacity(long long needed, int extra)
{
    if (needed <= capacity && data)
        return true;
    return moveForvardBufer(extra, 0) == 0;
}

int appendixData::insertData(int pos, const char* text)
{
    const long long add = textLength(text);
    if (add < 0 || pos < 0 || pos > length || add > INT_MAX - 2LL * length - kGrowthSlack)
        return 1;
    if (add == 0)
        return 0;
    // Growth keeps twice the data plus the slack, so a run of inserts into a
    // file being edited does not reallocate on every line.
    if (!ensureCapacity(length + add, int(length + add)))
        return 1;
    std::memmove(data + pos + add, data + pos, std::size_t(length - pos));
    std::memcpy(data + pos, text, std::size_t(add));
    length += int(add);
    return 0;
}

int appendixData::replaceData(int start, int end, const char* text)
{
    const long long add = textLength(text);
    if (add < 0 || start < 0 || start > end || end > length
        || add > INT_MAX - 2LL * length - kGrowthSlack)
        return 1;
    const long long newLength = (long long)length - (end - start) + add;
    if (!ensureCapacity(newLength, int(length + add)))
        return 1;
    std::memmove(data + start + add, data + end, std::size_t(length - end));
    if (add > 0)
        std::memcpy(data + start, text, std::size_t(add));
    length = int(newLength);
    return 0;
}

char appendixData::operator[](int i) const
{
    return i >= 0 && i < length ? data[i] : 0;
}

int appendixData::findData(const char* pattern, int* end) const
{
    if (end)
        *end = 0;
    const int p = patternLength(pattern);
    if (p < 0 || !data || length < p)
        return 1;
    for (int last = p; last <= length; ++last) {
        if (std::memcmp(data + last - p, pattern, std::size_t(p)) == 0) {
            if (end)
                *end = last;
            return 0;
        }
    }
    return 1;
}

int appendixData::findData(int& from, const char* pattern, int* end) const
{
    if (from < 0)
        from = 0;
    const int p = patternLength(pattern);
    if (from >= length || p < 0 || !data) {
        if (end)
            *end = 0;
        return 1;
    }
    while (from + p <= length) {
        if (std::memcmp(data + from, pattern, std::size_t(p)) == 0) {
            if (end)
                *end = from + p;
            return 0;
        }
        ++from;
    }
    if (end)
        *end = length;
    return 1;
}

int appendixData::findOneStr(int& pos, char* out, int size) const
{
    if (pos < 0)
        pos = 0;
    int end = 0;
    int from = pos;
    if (findData(from, "\n", &end) != 0 && (end != length || end == 0)) {
        // A second try with CR LF cannot find what "\n" did not; it stays so
        // that every line reader keeps searching in the same order.
        from = pos;
        if (findData(from, "\r\n", &end) != 0)
            return 1;
    }
    const int lineLength = end - pos;
    const int copied = size <= 0 ? 0 : (lineLength < size ? lineLength : size);
    if (out) {
        if (copied > 0)
            std::memcpy(out, data + pos, std::size_t(copied));
        out[copied] = 0;
    }
    pos = end;
    return 0;
}
