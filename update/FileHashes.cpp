#include "update/FileHashes.h"

namespace {

constexpr int kSha256HexDigits = 64;

FileVerdict refuse(const QString& reason)
{
    FileVerdict verdict;
    verdict.checked = true;
    verdict.reason = reason;
    return verdict;
}

}  // namespace

bool isSha256Text(const QByteArray& text)
{
    if (text.size() != kSha256HexDigits)
        return false;
    for (const char c : text)
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f')))
            return false;
    return true;
}

void CListedHashes::insert(const dlModule& module, const ListedHash& hash)
{
    if (hash.isEmpty())
        byModule_.remove(dlIdentity(module));
    else
        byModule_.insert(dlIdentity(module), hash);
}

ListedHash CListedHashes::value(const dlModule& module) const
{
    return byModule_.value(dlIdentity(module));
}

FileVerdict checkFetchedFile(const ListedHash& listed, const FetchDigest& fetched, bool hashRequired)
{
    if (listed.isEmpty()) {
        if (hashRequired)
            return refuse(QStringLiteral("its list gives no SHA-256 for it"));
        FileVerdict verdict;
        verdict.accepted = true;
        verdict.reason = QStringLiteral("not checked: its list gives no SHA-256");
        return verdict;
    }
    if (fetched.overran)
        return refuse(QStringLiteral("it is longer than the %1 bytes its list allows")
                          .arg(listed.maxBytes()));
    if (fetched.sha256.isEmpty())
        return refuse(QStringLiteral("it was fetched without being hashed"));
    if (fetched.sha256 != listed.sha256)
        return refuse(QStringLiteral("its SHA-256 %1 is not the %2 its list gives")
                          .arg(QString::fromLatin1(fetched.sha256), QString::fromLatin1(listed.sha256)));
    FileVerdict verdict;
    verdict.accepted = true;
    verdict.checked = true;
    verdict.reason = QStringLiteral("SHA-256 verified");
    return verdict;
}
