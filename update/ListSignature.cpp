#include "update/ListSignature.h"

#include <cstring>
#include <limits>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>

#include "storage/IniFiles.h"

namespace {

constexpr int kPathBufferSize = 1024;
constexpr int kValueBufferSize = inifiles::kMaxLine;
constexpr int kKeySlots = 9;  // PublicKey, PublicKey2 ... PublicKey9

ListVerdict refuse(ListVerdict::Refusal refusal, const QString& reason)
{
    ListVerdict verdict;
    verdict.refusal = refusal;
    verdict.reason = reason;
    return verdict;
}

const MinisignPublicKey* keyWithId(const QVector<MinisignPublicKey>& keys, const QByteArray& id)
{
    for (const MinisignPublicKey& key : keys)
        if (key.keyId == id)
            return &key;
    return nullptr;
}

}  // namespace

SignatureSettings SignatureSettings::read(const QString& configFilePath)
{
    SignatureSettings settings;
    const QByteArray path = configFilePath.toLocal8Bit().left(kPathBufferSize - 1);
    inifiles ini(path.constData(), false);
    // Every slot is read, not up to the first gap: dropping PublicKey once
    // a rotation to PublicKey2 is done must not switch the check off.
    for (int n = 1; n <= kKeySlots; ++n) {
        const QByteArray name = n == 1 ? QByteArrayLiteral("PublicKey")
                                       : QByteArrayLiteral("PublicKey") + QByteArray::number(n);
        char value[kValueBufferSize];
        std::memset(value, 0, sizeof value);
        if (ini.ReadString("Signature", name.constData(), "", value, kValueBufferSize) != 0)
            continue;
        settings.enabled = true;
        MinisignPublicKey key;
        QString why;
        if (MinisignPublicKey::parse(QByteArray(value), key, &why))
            settings.keys.append(key);
        else
            settings.errors.append(QString::fromLatin1(name) + QStringLiteral(": ") + why);
    }
    return settings;
}

bool ListSignature::readTrustedComment(const QByteArray& comment, qint64& serial, QDateTime& expires)
{
    static const QRegularExpression serialWord(QStringLiteral("(?:^|\\s)serial=(\\d{1,18})(?:\\s|$)"));
    static const QRegularExpression expiresWord(QStringLiteral(
        "(?:^|\\s)expires=(\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ)(?:\\s|$)"));
    const QString text = QString::fromUtf8(comment);
    const QRegularExpressionMatch s = serialWord.match(text);
    const QRegularExpressionMatch e = expiresWord.match(text);
    if (!s.hasMatch() || !e.hasMatch())
        return false;
    const QDateTime when = QDateTime::fromString(e.captured(1), Qt::ISODate);
    if (!when.isValid())
        return false;
    serial = s.captured(1).toLongLong();
    expires = when.toUTC();
    return true;
}

ListVerdict ListSignature::verify(const QByteArray& list, const QByteArray& minisig,
                                  const QVector<MinisignPublicKey>& keys,
                                  qint64 highestAcceptedSerial, const QDateTime& nowUtc)
{
    if (minisig.isEmpty())
        return refuse(ListVerdict::MissingSignature, QStringLiteral("it has no signature"));
    MinisignSignature signature;
    QString why;
    if (!MinisignSignature::parse(minisig, signature, &why))
        return refuse(ListVerdict::Malformed, QStringLiteral("its signature is malformed: ") + why);
    const MinisignPublicKey* key = keyWithId(keys, signature.keyId);
    if (!key)
        return refuse(ListVerdict::UnknownKey,
                      QStringLiteral("it is signed by key %1, which is not configured")
                          .arg(minisignKeyIdText(signature.keyId)));
    if (!signature.signs(list, *key))
        return refuse(ListVerdict::BadSignature,
                      QStringLiteral("its signature does not match its contents"));
    if (!signature.signsTrustedComment(*key))
        return refuse(ListVerdict::BadTrustedComment,
                      QStringLiteral("the signature of its trusted comment does not match"));
    qint64 serial = -1;
    QDateTime expires;
    if (!readTrustedComment(signature.trustedComment, serial, expires))
        return refuse(ListVerdict::BadTrustedComment,
                      QStringLiteral("its trusted comment gives no serial=N and expires=TIME"));

    ListVerdict verdict;
    verdict.serial = serial;
    verdict.expires = expires;
    const QString expiry = expires.toString(Qt::ISODate);
    if (nowUtc.toUTC() >= expires) {
        verdict.refusal = ListVerdict::Expired;
        verdict.reason = QStringLiteral("its signature expired at %1").arg(expiry);
        return verdict;
    }
    if (serial < highestAcceptedSerial) {
        verdict.refusal = ListVerdict::Rollback;
        verdict.reason = QStringLiteral("its serial %1 is older than serial %2, already accepted")
                             .arg(serial)
                             .arg(highestAcceptedSerial);
        return verdict;
    }
    verdict.accepted = true;
    verdict.refusal = ListVerdict::None;
    verdict.reason = QStringLiteral("signed by key %1, serial %2, valid until %3")
                         .arg(key->idText())
                         .arg(serial)
                         .arg(expiry);
    return verdict;
}

const char AcceptedSerialStore::kFileName[] = "accepted-serial";

AcceptedSerialStore::AcceptedSerialStore(QString folder)
    : path_(QDir(folder).filePath(QLatin1String(kFileName)))
{
}

qint64 AcceptedSerialStore::highest() const
{
    QFile file(path_);
    if (!file.exists())
        return 0;
    if (!file.open(QIODevice::ReadOnly))
        return std::numeric_limits<qint64>::max();
    bool number = false;
    const qint64 serial = file.read(64).trimmed().toLongLong(&number);
    return number && serial >= 0 ? serial : std::numeric_limits<qint64>::max();
}

bool AcceptedSerialStore::raiseTo(qint64 serial)
{
    if (serial <= highest())
        return true;
    QDir().mkpath(QFileInfo(path_).path());
    QSaveFile file(path_);
    const QByteArray text = QByteArray::number(serial) + '\n';
    return file.open(QIODevice::WriteOnly) && file.write(text) == text.size() && file.commit();
}
