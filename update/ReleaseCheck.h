#pragma once
// What the workflow checks of a release before it believes it: with a key
// in download.cfg every fetched list and text must carry a good signature
// (ListSignature), and every fetched file must match the SHA-256 its module
// list gives; without a key, a file whose list gives a hash is still checked.
// Keeps the listed hashes beside the records, the accepted serial, and what
// was refused in this run, for the report.
#include <QSet>
#include <QString>
#include <QStringList>

#include "update/DlModule.h"
#include "update/FileHashes.h"
#include "update/ListSignature.h"

class CReleaseCheck {
public:
    void load(const QString& configFilePath, const QString& downloadFolder);
    bool signaturesRequired() const { return settings_.enabled; }
    CListedHashes& hashes() { return hashes_; }

    // The signature file's name on the server for a list's name.
    static QString signatureName(const QString& listName);
    // Whether the fetched list at listFile, with its signature at
    // signatureFile (missing: none was served), may be used. A refused list
    // is deleted, so that it offers nothing; the reason is returned.
    bool acceptList(const QString& listFile, const QString& signatureFile, QString* reason);
    // Whether the fetched file may be unpacked; refusal is recorded for the
    // report.
    FileVerdict checkFile(const dlModule& record, const FetchDigest& fetched);

    // This run's refused files: " - NAME: REASON" lines, and whether record is one.
    const QStringList& refusals() const { return refusals_; }
    bool isRefused(const dlModule& record) const;
    void forgetRun();

private:
    SignatureSettings settings_;
    QString downloadFolder_;
    CListedHashes hashes_;
    QStringList refusals_;
    QSet<QByteArray> refused_;  // identities of this run's refused records
};
