#pragma once
// A fetched file's SHA-256, computed from the bytes as they are written, and
// the bound on its length. Hashing on the way in reads nothing back from
// disk: a resumed fetch hashes its kept prefix while it copies it anyway,
// and a body that restarts from byte 0 starts the hash again.
#include <sodium.h>

#include <QByteArray>
#include <QIODevice>
#include <QPointer>
#include <QString>

class CFileDigest {
public:
    CFileDigest();
    // Back to an empty file.
    void reset();
    void add(const char* data, qint64 size);
    qint64 bytes() const { return bytes_; }
    // SHA-256 of the bytes so far, 64 lower-case hex digits; more may follow.
    QByteArray hex() const;

private:
    crypto_hash_sha256_state state_;
    qint64 bytes_ = 0;
};

// What the client knows of a completed fetch it was asked to check.
struct FetchDigest {
    QByteArray sha256;     // 64 lower-case hex digits; empty when the fetch was not hashed
    qint64 bytes = 0;      // the file's length
    bool overran = false;  // more bytes came than allowed: cut off, deleted, failed
};

// The longest a file listed at sizeKb may be: the list rounds the size up
// to whole kB, and one kB more is allowed for a server that rounds
// differently.
qint64 listedSizeLimit(qint64 sizeKb);

// The output device of a checked fetch: passes every byte to the file and
// to the digest, and refuses the bytes beyond maxBytes (the ones up to it
// are written), so that a server that never stops cannot fill the disk.
class CCheckedFileWriter : public QIODevice {
    Q_OBJECT
public:
    // maxBytes 0: no bound. The digest already holds the file's kept bytes.
    CCheckedFileWriter(QIODevice* file, CFileDigest& digest, qint64 maxBytes);
    bool overran() const { return overran_; }
    bool isSequential() const override { return true; }

protected:
    qint64 readData(char*, qint64) override { return -1; }
    qint64 writeData(const char* data, qint64 size) override;

private:
    QPointer<QIODevice> file_;
    CFileDigest& digest_;
    qint64 maxBytes_;
    bool overran_ = false;
};
