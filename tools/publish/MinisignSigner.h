#pragma once
// Signs published texts in minisign's format (the prehashed "ED" variant)
// with a minisign secret key, so that `minisign -V` and the module accept
// the signatures alike. The key must be unencrypted (`minisign -G -W`): the
// publisher runs unattended and asks for no password.
#include <QByteArray>
#include <QString>

class MinisignSigner {
public:
    MinisignSigner();
    ~MinisignSigner();
    MinisignSigner(const MinisignSigner&) = delete;
    MinisignSigner& operator=(const MinisignSigner&) = delete;

    // Reads a minisign secret key file. False, with errorString set, when it
    // is not one, is encrypted, or its checksum does not match.
    bool load(const QString& secretKeyFile);
    QString errorString() const { return error_; }
    bool isLoaded() const { return loaded_; }

    // The ".minisig" text for data, with trustedComment as its trusted
    // comment (one line).
    QByteArray sign(const QByteArray& data, const QByteArray& trustedComment) const;

private:
    bool fail(const QString& message);

    QByteArray keyId_;         // 8 bytes
    unsigned char secret_[64];  // Ed25519 secret key (seed and public key)
    bool loaded_ = false;
    QString error_;
};

// "serial=N expires=YYYY-MM-DDTHH:MM:SSZ", what the module reads back.
QByteArray releaseTrustedComment(qint64 serial, const QString& expiresUtc);
// Whether text is a time as the trusted comment gives it.
bool isExpiryTime(const QString& text);
