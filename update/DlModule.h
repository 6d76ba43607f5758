#pragma once
// The record of one file the update server offers (a program module or a
// configuration package) and the list the server-list parsers produce.
//
// dlModule is a plain record of fixed text fields, copied by value and kept
// in realloc'ed arrays; it owns no heap memory. Text is 8-bit local-encoding
// text, NUL-terminated, at most 254 bytes plus the terminator: longer values
// are cut, never rejected.
#include <cstddef>
#include <cstdint>

#include <QByteArray>
#include <QString>

// Bytes of one text field, terminator included.
constexpr std::size_t kDlTextSize = 255;

struct dlModule {
    char name[kDlTextSize];          // module file name; key against the installed modules
    char version[kDlTextSize];       // offered version, a.b.c
    char versionExtra[kDlTextSize];  // carried beside version into the version comparison
    char type[kDlTextSize];          // "2": the file belongs to a configuration
    char serverPath[kDlTextSize];    // where the file lies on the update server
    char descPath[kDlTextSize];      // where its description text lies on the server
    char localPath[kDlTextSize];     // the (partly) downloaded local file; empty when parsed
    char auxPath[kDlTextSize];       // used by the download, unpacking and installation steps
    int32_t state;                   // dlState below
    char title[kDlTextSize];         // text shown in the dialog's lists
    char sizeText[kDlTextSize];      // "12 kb" or "3.0 Mb"
};

// The record never leaves the process, so it keeps its natural alignment; the
// field order is fixed all the same because every step copies field by field.
static_assert(offsetof(dlModule, state) == 8 * kDlTextSize, "state follows auxPath");
static_assert(offsetof(dlModule, title) == 8 * kDlTextSize + 4, "title follows state");
static_assert(offsetof(dlModule, sizeText) == 9 * kDlTextSize + 4, "sizeText is last");

// Values of dlModule::state.
enum dlState : int32_t {
    dlStateParsed = -1,     // freshly parsed from a server list
    dlStateAutoChosen = 0,  // chosen by the automatic mode, nothing fetched yet
    dlStateToFetch = 1,     // in a recorded run: still to be fetched
    dlStateFetched = 2,     // fetched and unpacked, waiting for installation; inside the
                            // chosen set also: changed since it was selected
    dlStateInstalled = 3,   // installed and reported
    dlStateFailed = 4,      // installation failed
};

// A record with every text empty and the state of a freshly parsed entry.
dlModule emptyDlModule();
// Makes module such a record in place, without a second record to copy from.
void clearDlModule(dlModule& module);

// Stores text in a field: cut to 254 bytes, terminated, the rest zeroed.
void setDlText(char (&field)[kDlTextSize], const QByteArray& text);
// Stores text encoded in the local 8-bit encoding, as setDlText(field,
// text.toLocal8Bit()) does.
void setDlLocalText(char (&field)[kDlTextSize], const QStringRef& text);
// The text of a field, up to its terminator (or all 255 bytes if it has none).
QByteArray dlText(const char (&field)[kDlTextSize]);
// The same text without a copy: it refers to the field and is only good while
// the record lives and the field is not changed. For look-ups and comparisons.
QByteArray dlTextInPlace(const char (&field)[kDlTextSize]);
// The text of a field decoded from the local 8-bit encoding.
QString dlLocalText(const char (&field)[kDlTextSize]);
// What tells records apart in the chosen set, the state file and the listed
// hashes: name, version and versionExtra.
QByteArray dlIdentity(const dlModule& module);

// The size shown to the user for a size in kB: "%d kb" up to 1024 kB, beyond
// that "%0.1f Mb" of the size shifted right by 10 bits. The shift is an
// integer division, so the decimal is always ".0"; that is how sizes have
// always been shown and it is kept.
QByteArray dlSizeText(int sizeKb);

// The parsers' output: a count and an array of count records. The array is
// malloc'ed and freed with free(); it has room for recordCapacity(count)
// records (update/RecordGrowth.h), which holds only while the members alone
// set its fields; everyone else just reads them.
struct dlListModule {
    int32_t count = 0;
    dlModule* modules = nullptr;

    dlListModule() = default;
    ~dlListModule();
    dlListModule(const dlListModule&) = delete;
    dlListModule& operator=(const dlListModule&) = delete;
    dlListModule(dlListModule&& other) noexcept;
    dlListModule& operator=(dlListModule&& other) noexcept;

    // Appends a copy of module; if the array cannot grow the list is unchanged.
    void append(const dlModule& module);
    // Empties the list and frees the array.
    void clear();
};
