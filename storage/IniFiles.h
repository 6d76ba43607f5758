#pragma once
// Small settings files of [section] lines and key=value lines, such as
// "download.cfg". The whole file is held in memory; reads search it, and every
// write edits it and rewrites the whole file at once.
//
// The format's rules, kept as they have always been:
// - section names match exactly, byte for byte ("[address]" is not
//   "[Address]"), and are found anywhere in the file;
// - keys match regardless of ASCII case and of spaces around them;
// - there are no comments: a line without "=" never matches;
// - lines are read up to 1024 bytes; what follows on a longer line is ignored.
#include <QByteArray>

#include "storage/AppendixData.h"

class inifiles {
public:
    // Loads path. When it cannot be read and create is set, the file is
    // created empty; create also makes every read of a missing key write its
    // default into the file.
    inifiles(const char* path, bool create);
    // Nothing is written here: every write has already been saved.
    ~inifiles() = default;
    inifiles(const inifiles&) = delete;
    inifiles& operator=(const inifiles&) = delete;

    // Found: the value into buf (at most size - 1 bytes, terminated), 0.
    // Not found: def into buf likewise, 1 (and written, with create).
    int ReadString(const char* section, const char* key, const char* def, char* buf, int size);
    // The value as a base-10 integer; text that is not a number reads as 0.
    int ReadInteger(const char* section, const char* key, int def);
    // True only for a stored 1: any other number, 2 included, is false.
    bool ReadBool(const char* section, const char* key, bool def);
    double ReadFloat(const char* section, const char* key, double def);

    // True when an existing line was replaced, false when the parameter (and
    // perhaps its section) was added.
    bool WriteString(const char* section, const char* key, const char* value);
    bool WriteInteger(const char* section, const char* key, int value);
    bool WriteFloat(const char* section, const char* key, double value);
    bool WriteBool(const char* section, const char* key, bool value);

    bool paramIsExist(const char* section, const char* key);

    // Section names in file order: the text between "[" and "]" of each line
    // that starts with "[", at most size - 1 bytes, terminated. 0 when a name
    // was copied, 1 at the end.
    int findFirstSection(char* name, int size);
    int findNextSection(char* name, int size);
    // The index-th parameter line of section (0 first): its key (spaces
    // trimmed, case kept) and value, each bounded like ReadString. 0 when
    // found, 1 when the section has fewer parameters or is missing.
    int CopyNameParam(const char* section, int index, char* name, int nameSize, char* value,
                      int valueSize);

    // Bytes of one line that the readers look at.
    static constexpr int kMaxLine = 1024;
    // Bytes of a line the writers produce, without the NUL.
    static constexpr int kMaxWrittenLine = 1023;

private:
    int copyToBuffer();
    int copyToFile();
    // Offset just past "[section]", or -1 when the file has no such section.
    int sectionBodyStart(const char* section) const;
    bool findSection(const char* section, const char* key, char* out, int size);
    static bool findNameParam(const char* line, const char* key, char* out, int size,
                              bool wantValue);
    bool writeSection(const char* key, const char* section, const char* value);
    bool endsWithLineBreak() const;
    void insertParameter(int position, const char* key, const char* value);

    int sectionCursor = 0;     // where findNextSection goes on
    bool listingSections = false;
    bool create;
    appendixData buffer{512};
    QByteArray path;
};
