#include "tools/publish/MinisignSigner.h"

#include <cstring>

#include <sodium.h>

#include <QDateTime>
#include <QFile>
#include <QList>
#include <QRegularExpression>

#include "update/Minisign.h"

namespace {

// A secret key file's second line decodes to
//   "Ed" | kdf "\0\0" (none) or "Sc" (scrypt) | checksum "B2" | salt (32)
//   | opslimit (8) | memlimit (8) | key id (8) | secret key (64) | checksum (32)
constexpr int kKeyIdOffset = 54;
constexpr int kSecretOffset = kKeyIdOffset + 8;
constexpr int kChecksumOffset = kSecretOffset + 64;
constexpr int kSecretKeyBytes = kChecksumOffset + 32;

const unsigned char* bytes(const QByteArray& data)
{
    return reinterpret_cast<const unsigned char*>(data.constData());
}

}  // namespace

QByteArray releaseTrustedComment(qint64 serial, const QString& expiresUtc)
{
    return "serial=" + QByteArray::number(serial) + " expires=" + expiresUtc.toLatin1();
}

bool isExpiryTime(const QString& text)
{
    static const QRegularExpression form(QStringLiteral("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ$"));
    return form.match(text).hasMatch() && QDateTime::fromString(text, Qt::ISODate).isValid();
}

MinisignSigner::MinisignSigner()
{
    sodium_memzero(secret_, sizeof secret_);
}

MinisignSigner::~MinisignSigner()
{
    sodium_memzero(secret_, sizeof secret_);
}

bool MinisignSigner::fail(const QString& message)
{
    error_ = message;
    return false;
}

bool MinisignSigner::load(const QString& secretKeyFile)
{
    if (sodium_init() < 0)
        return fail(QStringLiteral("libsodium cannot be initialised"));
    QFile file(secretKeyFile);
    if (!file.open(QIODevice::ReadOnly))
        return fail(QStringLiteral("cannot read %1: %2").arg(secretKeyFile, file.errorString()));
    const QList<QByteArray> lines = file.readAll().split('\n');
    const auto decoded = lines.size() >= 2
        ? QByteArray::fromBase64Encoding(lines[1].trimmed(), QByteArray::AbortOnBase64DecodingErrors)
        : QByteArray::FromBase64Result{};
    const QByteArray key = decoded ? *decoded : QByteArray();
    if (!lines[0].startsWith("untrusted comment:") || key.size() != kSecretKeyBytes
        || !key.startsWith("Ed") || key.mid(4, 2) != "B2")
        return fail(QStringLiteral("%1 is not a minisign secret key").arg(secretKeyFile));
    if (key.mid(2, 2) != QByteArray(2, '\0'))
        return fail(QStringLiteral("%1 is encrypted; make an unencrypted key with minisign -G -W")
                        .arg(secretKeyFile));
    // minisign leaves the checksum zero in unencrypted keys; one that is
    // there must match.
    const QByteArray checksum = key.mid(kChecksumOffset);
    if (checksum != QByteArray(checksum.size(), '\0')) {
        const QByteArray covered = key.left(2) + key.mid(kKeyIdOffset, 8 + 64);
        unsigned char expected[32];
        crypto_generichash(expected, sizeof expected, bytes(covered), size_t(covered.size()), nullptr, 0);
        if (sodium_memcmp(expected, bytes(checksum), sizeof expected) != 0)
            return fail(QStringLiteral("%1: the key's checksum does not match").arg(secretKeyFile));
    }
    keyId_ = key.mid(kKeyIdOffset, 8);
    std::memcpy(secret_, key.constData() + kSecretOffset, sizeof secret_);
    loaded_ = true;
    return true;
}

QByteArray MinisignSigner::sign(const QByteArray& data, const QByteArray& trustedComment) const
{
    unsigned char prehash[crypto_generichash_BYTES_MAX];
    crypto_generichash(prehash, sizeof prehash, bytes(data), size_t(data.size()), nullptr, 0);
    QByteArray signature(crypto_sign_BYTES, '\0');
    crypto_sign_detached(reinterpret_cast<unsigned char*>(signature.data()), nullptr, prehash,
                         sizeof prehash, secret_);
    const QByteArray covered = signature + trustedComment;
    QByteArray global(crypto_sign_BYTES, '\0');
    crypto_sign_detached(reinterpret_cast<unsigned char*>(global.data()), nullptr, bytes(covered),
                         static_cast<unsigned long long>(covered.size()), secret_);
    return "untrusted comment: signature from update-publisher, key " + minisignKeyIdText(keyId_).toLatin1() + '\n'
        + (QByteArrayLiteral("ED") + keyId_ + signature).toBase64() + '\n'
        + "trusted comment: " + trustedComment + '\n' + global.toBase64() + '\n';
}
