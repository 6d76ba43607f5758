#pragma once
// A growable byte buffer: the whole of an INI file while it is read and
// edited, and the line buffer of the socket code. Bytes are appended at the
// end, searched for patterns and line ends, edited in place and dropped from
// the front. The buffer does not keep its bytes NUL-terminated.
//
// Every operation checks its positions against the bytes in use, so a wrong
// position or count from a caller is refused (result 1 or -1) rather than
// read or written past the block.

class appendixData {
public:
    explicit appendixData(int capacity);
    ~appendixData();
    appendixData(const appendixData&) = delete;

    // Replace the contents by a NUL-terminated string or another buffer's bytes.
    appendixData& operator=(const char* text);
    appendixData& operator=(appendixData& other);

    bool IsEmpty() const { return length == 0; }

    // Sets the bytes in use to min(n, capacity); result 0, or 1 for n < 0.
    int setNewOffset(int n);
    // Appends n bytes of src. 1 for a null src, n <= 0, no block or a failed growth.
    int increaseBuffer(const char* src, int n);
    // Copies up to *n bytes from the front into out and stores the count in
    // *n; with nothing to copy out[0] := 0. The buffer is not changed.
    void getDataFromBuff(char* out, int* n) const;
    // Empties the buffer; freeBlock also gives the block back.
    void releaseBuffer(bool freeBlock);
    // Reallocates to length + extra + 512 bytes, zeroed, with the bytes in use
    // copied to the start (or, with toEnd, to the end) of the new block.
    // -1 when the block cannot be allocated; nothing changes then.
    int moveForvardBufer(int extra, int toEnd);
    // Grows with extra n when the capacity is below n.
    int setNewLenBuf(int n);
    // Drops the first n bytes. -1 without a block or bytes, or for n < 0.
    int relocBuffer(int n);
    // relocBuffer(n), then moves the socket code's mark back by n (-1 once it
    // is no longer positive).
    int cutBuffer(int n);
    // Inserts text (without its NUL) at pos. 1 for a bad pos or a failed growth.
    int insertData(int pos, const char* text);
    // Replaces bytes [start, end) by text (without its NUL). 1 for a bad
    // range or a failed growth.
    int replaceData(int start, int end, const char* text);

    // The byte at i; 0 outside the bytes in use.
    char operator[](int i) const;

    // First occurrence of pattern (shorter than kMaxPattern bytes) in the
    // buffer: result 0 and *end just past it; else 1 and *end := 0.
    int findData(const char* pattern, int* end) const;
    // First occurrence at or after from (-1 counts as 0): result 0, from at
    // the match and *end just past it. Else 1 with *end := length, or 0 when
    // from was at or past the end.
    int findData(int& from, const char* pattern, int* end) const;
    int findHTTPData(int* end) const { return findData("\r\n\r\n", end); }
    int findLineData(int* end) const { return findData("\r\n", end); }
    int findSpaceData(int* end) const { return findData(" ", end); }
    int findPointData(int* end) const { return findData(".\r\n", end); }
    // Copies the line starting at pos (its line break included, or the rest
    // of the data for a last line without one) into out, at most size bytes
    // and a NUL after them: out needs size + 1 bytes. pos moves to the next
    // line. 1 when no line starts at pos.
    int findOneStr(int& pos, char* out, int size) const;

    const char* getData() const { return data; }
    int getLength() const { return length; }
    int getCapacity() const { return capacity; }
    int getMark() const { return mark; }
    void setMark(int position) { mark = position; }

    // Patterns for findData are short tokens such as line ends; longer ones
    // are not searched for.
    static constexpr int kMaxPattern = 40;
    // Room added on every growth beyond what is needed.
    static constexpr int kGrowthSlack = 512;

private:
    // Makes room for needed bytes in total, growing by extra when it must.
    bool ensureCapacity(long long needed, int extra);

    char* data = nullptr;
    int length = 0;
    int capacity = 0;
    int mark = -1;
};
