#include "transfer/FileDigest.h"

#include <cerrno>

namespace {

// libsodium's SHA-256 needs no set-up, but its other parts do; calling it
// once more is free.
void initialiseSodium()
{
    static const bool ready = sodium_init() >= 0;
    Q_UNUSED(ready)
}

}  // namespace

CFileDigest::CFileDigest()
{
    initialiseSodium();
    reset();
}

void CFileDigest::reset()
{
    crypto_hash_sha256_init(&state_);
    bytes_ = 0;
}

void CFileDigest::add(const char* data, qint64 size)
{
    if (size <= 0)
        return;
    crypto_hash_sha256_update(&state_, reinterpret_cast<const unsigned char*>(data),
                              static_cast<unsigned long long>(size));
    bytes_ += size;
}

QByteArray CFileDigest::hex() const
{
    crypto_hash_sha256_state copy = state_;
    unsigned char digest[crypto_hash_sha256_BYTES];
    crypto_hash_sha256_final(&copy, digest);
    return QByteArray(reinterpret_cast<const char*>(digest), int(sizeof digest)).toHex();
}

qint64 listedSizeLimit(qint64 sizeKb)
{
    return sizeKb < 0 ? 1024 : (sizeKb + 1) * 1024;
}

CCheckedFileWriter::CCheckedFileWriter(QIODevice* file, CFileDigest& digest, qint64 maxBytes)
    : file_(file), digest_(digest), maxBytes_(maxBytes)
{
    open(QIODevice::WriteOnly | QIODevice::Unbuffered);
}

qint64 CCheckedFileWriter::writeData(const char* data, qint64 size)
{
    if (!file_)
        return -1;
    qint64 allowed = size;
    if (maxBytes_ > 0 && digest_.bytes() + size > maxBytes_)
        allowed = qMax<qint64>(0, maxBytes_ - digest_.bytes());
    if (allowed > 0) {
        const qint64 written = file_->write(data, allowed);
        if (written > 0)
            digest_.add(data, written);
        if (written != allowed) {
            // errno still holds the system's reason, which the connection reports.
            setErrorString(file_->errorString());
            return -1;
        }
    }
    if (allowed == size)
        return size;
    overran_ = true;
    setErrorString(QStringLiteral("longer than the %1 bytes its list allows").arg(maxBytes_));
    // The connection prefers errno's text; there is no system error here.
    errno = 0;
    return -1;
}
