#include "update/ReleaseCheck.h"

#include <QDateTime>
#include <QFile>

#include "platform/LogHelper.h"

namespace {

QByteArray bytesOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

}  // namespace

void CReleaseCheck::load(const QString& configFilePath, const QString& downloadFolder)
{
    settings_ = SignatureSettings::read(configFilePath);
    downloadFolder_ = downloadFolder;
    for (const QString& error : settings_.errors)
        LogHelper::ShowLogInfo(logTypeError, logLevel4, QStringLiteral("Signature settings: ") + error);
}

QString CReleaseCheck::signatureName(const QString& listName)
{
    return listName + QStringLiteral(".minisig");
}

bool CReleaseCheck::acceptList(const QString& listFile, const QString& signatureFile, QString* reason)
{
    AcceptedSerialStore serials(downloadFolder_);
    const ListVerdict verdict =
        ListSignature::verify(bytesOf(listFile), bytesOf(signatureFile), settings_.keys,
                              serials.highest(), QDateTime::currentDateTimeUtc());
    QFile::remove(signatureFile);
    if (verdict.accepted) {
        serials.raiseTo(verdict.serial);
        LogHelper::ShowLogInfo(logTypeMessage, logLevel2,
                               QStringLiteral("List accepted: %1 (serial %2)").arg(listFile).arg(verdict.serial));
        return true;
    }
    QFile::remove(listFile);
    *reason = verdict.reason;
    LogHelper::ShowLogInfo(logTypeError, logLevel4,
                           QStringLiteral("List refused: %1: %2").arg(listFile, verdict.reason));
    return false;
}

FileVerdict CReleaseCheck::checkFile(const dlModule& record, const FetchDigest& fetched)
{
    const FileVerdict verdict = checkFetchedFile(hashes_.value(record), fetched, settings_.enabled);
    const QString name = QString::fromLocal8Bit(dlText(record.name));
    if (verdict.accepted) {
        if (verdict.checked)
            LogHelper::ShowLogInfo(logTypeMessage, logLevel2, QStringLiteral("Verified %1: ").arg(name) + verdict.reason);
        return verdict;
    }
    refused_.insert(dlIdentity(record));
    refusals_ << QStringLiteral(" - %1: %2").arg(name, verdict.reason);
    LogHelper::ShowLogInfo(logTypeError, logLevel4, QStringLiteral("File refused: %1: %2").arg(name, verdict.reason));
    return verdict;
}

bool CReleaseCheck::isRefused(const dlModule& record) const
{
    return refused_.contains(dlIdentity(record));
}

void CReleaseCheck::forgetRun()
{
    refused_.clear();
    refusals_.clear();
}
