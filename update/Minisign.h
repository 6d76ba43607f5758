#pragma once
// minisign's public key and signature formats, so that release engineers sign
// with the tool they already use and the module checks with libsodium.
//
// Public key (the second line of a ".pub" file): base64 of
//   "Ed" | key id (8) | Ed25519 public key (32)
// Signature (".minisig"), four lines:
//   untrusted comment: <anything>
//   base64 of "ED" | key id (8) | Ed25519 signature (64) of BLAKE2b-512(file)
//   trusted comment: <text>
//   base64 of the Ed25519 signature (64) of (signature (64) | text)
// Only the prehashed "ED" variant is taken: minisign has written it by
// default for years, and one variant is one less way in.
#include <QByteArray>
#include <QString>

struct MinisignPublicKey {
    QByteArray keyId;  // 8 bytes, as minisign stores it
    QByteArray key;    // 32 bytes

    // Reads the base64 line of a public key; a whole ".pub" file's text is
    // taken too (its comment line is passed over). False, with why set,
    // for anything else.
    static bool parse(const QByteArray& text, MinisignPublicKey& out, QString* why = nullptr);
    // The key id as minisign prints it: 16 upper-case hex digits, the
    // stored bytes read as a little-endian number.
    QString idText() const;
};

struct MinisignSignature {
    QByteArray keyId;            // 8 bytes
    QByteArray signature;        // 64 bytes, over BLAKE2b-512 of the signed bytes
    QByteArray trustedComment;   // the text after "trusted comment: "
    QByteArray globalSignature;  // 64 bytes, over signature | trustedComment

    // Reads a ".minisig" file's text. False, with why set, when it is not one.
    static bool parse(const QByteArray& text, MinisignSignature& out, QString* why = nullptr);

    // Whether signature signs message under key, and globalSignature the
    // trusted comment. Neither looks at the key ids.
    bool signs(const QByteArray& message, const MinisignPublicKey& key) const;
    bool signsTrustedComment(const MinisignPublicKey& key) const;
};

// minisign's key id text for 8 stored bytes.
QString minisignKeyIdText(const QByteArray& keyId);
