#include "update/Minisign.h"

#include <sodium.h>

#include <QList>

namespace {

constexpr int kKeyIdBytes = 8;
const QByteArray kKeyAlgorithm = QByteArrayLiteral("Ed");
const QByteArray kHashedAlgorithm = QByteArrayLiteral("ED");
const QByteArray kLegacyAlgorithm = QByteArrayLiteral("Ed");
const QByteArray kUntrustedPrefix = QByteArrayLiteral("untrusted comment:");
const QByteArray kTrustedPrefix = QByteArrayLiteral("trusted comment: ");

// libsodium must be set up once before use; later calls return at once.
bool sodiumReady()
{
    static const bool ready = sodium_init() >= 0;
    return ready;
}

bool fail(QString* why, const QString& text)
{
    if (why)
        *why = text;
    return false;
}

// Strict base64: the whole text must decode, nothing else is tolerated.
bool decodeBase64(const QByteArray& text, QByteArray& out)
{
    const auto result = QByteArray::fromBase64Encoding(
        text, QByteArray::Base64Encoding | QByteArray::AbortOnBase64DecodingErrors);
    if (!result)
        return false;
    out = *result;
    return true;
}

bool verifyEd25519(const QByteArray& signature, const QByteArray& message,
                   const QByteArray& key)
{
    if (!sodiumReady() || signature.size() != crypto_sign_BYTES
        || key.size() != crypto_sign_PUBLICKEYBYTES)
        return false;
    return crypto_sign_verify_detached(
               reinterpret_cast<const unsigned char*>(signature.constData()),
               reinterpret_cast<const unsigned char*>(message.constData()),
               static_cast<unsigned long long>(message.size()),
               reinterpret_cast<const unsigned char*>(key.constData()))
        == 0;
}

// Lines without their ends; a CR before LF is dropped, as minisign does.
QList<QByteArray> textLines(const QByteArray& text)
{
    QList<QByteArray> lines = text.split('\n');
    for (QByteArray& line : lines)
        if (line.endsWith('\r'))
            line.chop(1);
    while (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

}  // namespace

QString minisignKeyIdText(const QByteArray& keyId)
{
    QString text;
    for (int i = keyId.size() - 1; i >= 0; --i)
        text += QStringLiteral("%1").arg(uchar(keyId[i]), 2, 16, QLatin1Char('0')).toUpper();
    return text;
}

QString MinisignPublicKey::idText() const
{
    return minisignKeyIdText(keyId);
}

bool MinisignPublicKey::parse(const QByteArray& text, MinisignPublicKey& out, QString* why)
{
    QByteArray line;
    for (const QByteArray& candidate : textLines(text)) {
        if (candidate.startsWith(kUntrustedPrefix))
            continue;
        line = candidate.trimmed();
        break;
    }
    QByteArray bytes;
    if (line.isEmpty() || !decodeBase64(line, bytes))
        return fail(why, QStringLiteral("the public key is not base64"));
    if (bytes.size() != 2 + kKeyIdBytes + crypto_sign_PUBLICKEYBYTES || !bytes.startsWith(kKeyAlgorithm))
        return fail(why, QStringLiteral("the public key is not a minisign Ed25519 key"));
    out.keyId = bytes.mid(2, kKeyIdBytes);
    out.key = bytes.mid(2 + kKeyIdBytes);
    return true;
}

bool MinisignSignature::parse(const QByteArray& text, MinisignSignature& out, QString* why)
{
    const QList<QByteArray> lines = textLines(text);
    if (lines.size() != 4)
        return fail(why, QStringLiteral("it has %1 lines instead of 4").arg(lines.size()));
    if (!lines[0].startsWith(kUntrustedPrefix))
        return fail(why, QStringLiteral("its first line is not an untrusted comment"));
    QByteArray bytes;
    if (!decodeBase64(lines[1].trimmed(), bytes)
        || bytes.size() != 2 + kKeyIdBytes + crypto_sign_BYTES)
        return fail(why, QStringLiteral("its signature line is not a minisign signature"));
    const QByteArray algorithm = bytes.left(2);
    if (algorithm == kLegacyAlgorithm)
        return fail(why, QStringLiteral("it signs the file unhashed (minisign -l), which is not accepted"));
    if (algorithm != kHashedAlgorithm)
        return fail(why, QStringLiteral("its signature algorithm is unknown"));
    if (!lines[2].startsWith(kTrustedPrefix))
        return fail(why, QStringLiteral("its third line is not a trusted comment"));
    QByteArray global;
    if (!decodeBase64(lines[3].trimmed(), global) || global.size() != crypto_sign_BYTES)
        return fail(why, QStringLiteral("its trusted comment signature is not 64 bytes of base64"));
    out.keyId = bytes.mid(2, kKeyIdBytes);
    out.signature = bytes.mid(2 + kKeyIdBytes);
    out.trustedComment = lines[2].mid(kTrustedPrefix.size());
    out.globalSignature = global;
    return true;
}

bool MinisignSignature::signs(const QByteArray& message, const MinisignPublicKey& key) const
{
    if (!sodiumReady())
        return false;
    QByteArray digest(crypto_generichash_BYTES_MAX, '\0');
    crypto_generichash(reinterpret_cast<unsigned char*>(digest.data()), size_t(digest.size()),
                       reinterpret_cast<const unsigned char*>(message.constData()),
                       static_cast<unsigned long long>(message.size()), nullptr, 0);
    return verifyEd25519(signature, digest, key.key);
}

bool MinisignSignature::signsTrustedComment(const MinisignPublicKey& key) const
{
    return verifyEd25519(globalSignature, signature + trustedComment, key.key);
}
