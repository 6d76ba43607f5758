#pragma once
// Writes an update server tree from a checked manifest:
//   configDesc.txt                    the configuration list
//   lists/<configuration>.modules.txt each configuration's module list
//   moduleDesc.txt                    the general module list
//   descriptions/*.txt                the description texts
//   files/<module>.gz                 the modules, gzip-compressed
//   <text>.minisig                    with a signer: a signature beside each
//                                     text above (lists and descriptions)
// Module list lines end with the SHA-256 of the file as served.
// The module saves every fetched file in one flat folder under its last path
// component, so no two published files may share that name.
#include <QByteArray>
#include <QHash>
#include <QString>

#include "tools/publish/UpdateManifest.h"

class MinisignSigner;

class ServerTreeWriter {
public:
    explicit ServerTreeWriter(QString outputDir);
    // Every text written is signed with signer, trustedComment its trusted
    // comment; the signer must outlive write().
    void signWith(const MinisignSigner* signer, const QByteArray& trustedComment);
    bool write(const UpdateManifest& manifest);
    QString errorString() const { return error_; }

private:
    bool publishModule(const ManifestModule& module, QByteArray& line);
    bool claim(const QString& serverPath, const QString& owner);
    // A text the module fetches: signed when there is a signer.
    bool writeText(const QString& serverPath, const QByteArray& bytes);
    bool claimText(const QString& serverPath, const QString& owner);
    bool writeFile(const QString& serverPath, const QByteArray& bytes);
    bool gzipInto(const QString& source, const QString& serverPath, qint64& compressedSize);
    bool fail(const QString& message);

    QString outputDir_;
    const MinisignSigner* signer_ = nullptr;
    QByteArray trustedComment_;
    QString error_;
    QHash<QString, QString> claimed_;          // published file name -> what it belongs to
    QHash<QString, QByteArray> publishedLine_;  // module name -> its list line
    QHash<QString, QString> publishedFrom_;     // module name -> source file and version
};

// One line of a module list:
//   name,version,core,type,descPath,serverPath,date,sizeKb,sha256
QByteArray moduleListLine(const ManifestModule& module, const QString& descPath,
                          const QString& serverPath, qint64 sizeKb, const QByteArray& sha256);
// One line of the configuration list: name,version,listPath,descPath,title
QByteArray configListLine(const ManifestConfiguration& config, const QString& listPath,
                          const QString& descPath);
