#pragma once
// What a module list says a file must be (its SHA-256 and its size) and the
// check of a fetched file against it before it is unpacked.
//
// The list's ninth field gives the SHA-256 of the file as served; the record
// of a file (dlModule) has no room for it and keeps its layout, so the
// hashes live beside the records, keyed by the same identity the chosen set
// and the state file use (name, version, versionExtra). A list without the
// field leaves nothing here, and nothing is checked for its files.
#include <QByteArray>
#include <QHash>
#include <QString>

#include "transfer/FileDigest.h"
#include "update/DlModule.h"

struct ListedHash {
    QByteArray sha256;  // 64 lower-case hex digits; empty: the list gave none
    qint64 sizeKb = 0;  // the list's size field, in kB

    bool isEmpty() const { return sha256.isEmpty(); }
    // The longest the fetched file may be.
    qint64 maxBytes() const { return listedSizeLimit(sizeKb); }
};

// Whether text is a SHA-256 as lists write it: 64 lower-case hex digits.
bool isSha256Text(const QByteArray& text);

class CListedHashes {
public:
    // Keeps hash for module's identity; an empty hash removes what was kept.
    void insert(const dlModule& module, const ListedHash& hash);
    // The hash kept for module's identity, or an empty one.
    ListedHash value(const dlModule& module) const;
    int count() const { return int(byModule_.size()); }
    void clear() { byModule_.clear(); }

private:
    QHash<QByteArray, ListedHash> byModule_;
};

struct FileVerdict {
    bool accepted = false;
    bool checked = false;  // false: accepted because its list gives no hash
    // For the report and the log.
    QString reason;
};

// Whether a fetched file may be unpacked. listed: its list's hash (empty when
// the list gives none); fetched: the HTTP client's lastFetch() after a fetch
// started with checkNextFile(listed.maxBytes()). A file whose list gives no
// hash passes unchecked unless hashRequired (lists are signed: every file
// must then be named by hash). A refused file must be deleted by the caller.
FileVerdict checkFetchedFile(const ListedHash& listed, const FetchDigest& fetched, bool hashRequired);
