#pragma once
// Whether a list fetched from the update server may be used: it must carry a
// minisign signature by one of the configured keys whose trusted comment
//   serial=N expires=YYYY-MM-DDTHH:MM:SSZ
// has not expired (a server frozen on an old release stops being believed)
// and whose serial is not lower than the highest this installation has
// accepted (an older release's lists, signed in their day, are refused).
#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QVector>

#include "update/Minisign.h"

// download.cfg:
//   [Signature]
//   PublicKey=RWQ...      the base64 line of a minisign public key
//   PublicKey2=RWQ...     further keys, for rotation: PublicKey2, PublicKey3, ...
// No PublicKey at all: verification is off and the module behaves as it
// always has. A key that is there but unreadable still switches it on
// (it is listed in errors and matches nothing), so a typo never turns
// checking off.
struct SignatureSettings {
    QVector<MinisignPublicKey> keys;
    QStringList errors;  // "PublicKey2: the public key is not base64"
    bool enabled = false;

    static SignatureSettings read(const QString& configFilePath);
};

struct ListVerdict {
    enum Refusal {
        None,
        MissingSignature,
        Malformed,
        UnknownKey,
        BadSignature,
        BadTrustedComment,  // its own signature does not match, or it lacks serial or expiry
        Expired,
        Rollback,
    };
    bool accepted = false;
    Refusal refusal = MissingSignature;
    qint64 serial = -1;  // from the trusted comment, when it could be read
    QDateTime expires;
    // For the report and the log: why the list was refused, or what was accepted.
    QString reason;
};

class ListSignature {
public:
    // list: the list's bytes as fetched; minisig: its ".minisig" file's bytes
    // (empty when there was none). highestAcceptedSerial: the serial store's
    // value (0 when nothing was accepted yet). nowUtc: the time the expiry
    // is checked against.
    static ListVerdict verify(const QByteArray& list, const QByteArray& minisig,
                              const QVector<MinisignPublicKey>& keys,
                              qint64 highestAcceptedSerial, const QDateTime& nowUtc);
    // Reads "serial=N expires=..." out of a trusted comment; other words are
    // allowed beside them. False when either is missing or unreadable.
    static bool readTrustedComment(const QByteArray& comment, qint64& serial, QDateTime& expires);
};

// The highest list serial this installation has accepted, kept across
// restarts in the download folder ("accepted-serial", one decimal line).
// Deleting that file (or the download folder) resets it to 0, after which
// any validly signed, unexpired list is accepted again; the publisher's
// serials must therefore keep growing across key rotations and servers.
// A file that cannot be read as a number counts as the largest serial, so
// that damage refuses lists rather than opening the door to old ones; the
// file must then be deleted by hand.
class AcceptedSerialStore {
public:
    explicit AcceptedSerialStore(QString folder);
    static const char kFileName[];

    qint64 highest() const;
    // Stores serial when it is higher than the stored one. False when the
    // file could not be written.
    bool raiseTo(qint64 serial);
    QString path() const { return path_; }

private:
    QString path_;
};
