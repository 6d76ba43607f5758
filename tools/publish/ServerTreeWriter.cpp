#include "tools/publish/ServerTreeWriter.h"

#include <zlib.h>

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include "tools/publish/MinisignSigner.h"

namespace {

constexpr int kCopyBlock = 64 * 1024;
const QString kSignatureSuffix = QStringLiteral(".minisig");

QByteArray local(const QString& text)
{
    return text.toLocal8Bit();
}

}  // namespace

QByteArray moduleListLine(const ManifestModule& module, const QString& descPath,
                          const QString& serverPath, qint64 sizeKb, const QByteArray& sha256)
{
    return local(module.name) + ',' + local(module.version) + ',' + local(module.core) + ','
        + QByteArray::number(module.type) + ',' + local(descPath) + ',' + local(serverPath) + ','
        + local(module.date) + ',' + QByteArray::number(sizeKb) + ',' + sha256 + '\n';
}

QByteArray configListLine(const ManifestConfiguration& config, const QString& listPath,
                          const QString& descPath)
{
    return local(config.name) + ',' + local(config.version) + ',' + local(listPath) + ','
        + local(descPath) + ',' + local(config.title) + '\n';
}

ServerTreeWriter::ServerTreeWriter(QString outputDir)
    : outputDir_(std::move(outputDir))
{
}

void ServerTreeWriter::signWith(const MinisignSigner* signer, const QByteArray& trustedComment)
{
    signer_ = signer;
    trustedComment_ = trustedComment;
}

bool ServerTreeWriter::fail(const QString& message)
{
    error_ = message;
    return false;
}

bool ServerTreeWriter::claim(const QString& serverPath, const QString& owner)
{
    const QString name = QFileInfo(serverPath).fileName();
    const auto taken = claimed_.constFind(name);
    if (taken != claimed_.constEnd())
        return fail(QStringLiteral("%1 and %2 would both be saved as \"%3\" by the module")
                        .arg(taken.value(), owner, name));
    claimed_.insert(name, owner);
    return true;
}

// The signature is fetched into the same flat folder as everything else, so
// its name is claimed too.
bool ServerTreeWriter::claimText(const QString& serverPath, const QString& owner)
{
    return claim(serverPath, owner)
        && (!signer_ || claim(serverPath + kSignatureSuffix, owner + QStringLiteral(" (signature)")));
}

bool ServerTreeWriter::writeText(const QString& serverPath, const QByteArray& bytes)
{
    return writeFile(serverPath, bytes)
        && (!signer_ || writeFile(serverPath + kSignatureSuffix, signer_->sign(bytes, trustedComment_)));
}

bool ServerTreeWriter::writeFile(const QString& serverPath, const QByteArray& bytes)
{
    const QString path = outputDir_ + serverPath;
    QDir().mkpath(QFileInfo(path).path());
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit())
        return fail(QStringLiteral("cannot write %1: %2").arg(path, file.errorString()));
    return true;
}

// zlib writes a header without a time stamp, so the same input always gives
// the same bytes and a published tree can be compared with a fresh one.
bool ServerTreeWriter::gzipInto(const QString& source, const QString& serverPath,
                                qint64& compressedSize)
{
    QFile in(source);
    if (!in.open(QIODevice::ReadOnly))
        return fail(QStringLiteral("cannot read %1: %2").arg(source, in.errorString()));
    const QString path = outputDir_ + serverPath;
    QDir().mkpath(QFileInfo(path).path());
    gzFile out = gzopen(QFile::encodeName(path).constData(), "wb9");
    if (!out)
        return fail(QStringLiteral("cannot write %1").arg(path));
    QByteArray block;
    bool ok = true;
    while (ok && !(block = in.read(kCopyBlock)).isEmpty())
        ok = gzwrite(out, block.constData(), unsigned(block.size())) == block.size();
    ok = (gzclose(out) == Z_OK) && ok;
    if (!ok)
        return fail(QStringLiteral("cannot compress %1 into %2").arg(source, path));
    compressedSize = QFileInfo(path).size();
    return true;
}

bool ServerTreeWriter::publishModule(const ManifestModule& module, QByteArray& line)
{
    const QString origin = module.file + QLatin1Char('@') + module.version;
    if (publishedLine_.contains(module.name)) {
        if (publishedFrom_.value(module.name) != origin)
            return fail(QStringLiteral("module \"%1\" is published twice with different files or "
                                       "versions")
                            .arg(module.name));
        line = publishedLine_.value(module.name);
        return true;
    }
    const QString serverPath = QStringLiteral("/files/") + module.name + QStringLiteral(".gz");
    const QString descPath = QStringLiteral("/descriptions/") + module.name + QStringLiteral(".txt");
    const QString owner = QStringLiteral("module \"%1\"").arg(module.name);
    if (!claim(serverPath, owner) || !claimText(descPath, owner + QStringLiteral(" (description)")))
        return false;
    qint64 compressed = 0;
    if (!gzipInto(module.file, serverPath, compressed))
        return false;
    QByteArray description = local(module.name + QLatin1Char(' ') + module.version) + '\n';
    if (!module.description.isEmpty()) {
        QFile text(module.description);
        if (!text.open(QIODevice::ReadOnly))
            return fail(QStringLiteral("cannot read %1").arg(module.description));
        description = text.readAll();
    }
    if (!writeText(descPath, description))
        return false;
    QFile served(outputDir_ + serverPath);
    QCryptographicHash sha256(QCryptographicHash::Sha256);
    if (!served.open(QIODevice::ReadOnly) || !sha256.addData(&served))
        return fail(QStringLiteral("cannot read back %1").arg(served.fileName()));
    line = moduleListLine(module, descPath, serverPath, (compressed + 1023) / 1024,
                          sha256.result().toHex());
    publishedLine_.insert(module.name, line);
    publishedFrom_.insert(module.name, origin);
    return true;
}

bool ServerTreeWriter::write(const UpdateManifest& manifest)
{
    if (QDir(outputDir_).exists() && !QDir(outputDir_).isEmpty())
        return fail(QStringLiteral("%1 is not empty; publish into a new folder").arg(outputDir_));
    QDir().mkpath(outputDir_);
    if (!claimText(QStringLiteral("/configDesc.txt"), QStringLiteral("the configuration list"))
        || !claimText(QStringLiteral("/moduleDesc.txt"), QStringLiteral("the module list")))
        return false;

    QByteArray configList;
    for (const ManifestConfiguration& config : manifest.configurations) {
        const QString listPath = QStringLiteral("/lists/") + config.name + QStringLiteral(".modules.txt");
        const QString descPath = QStringLiteral("/descriptions/") + config.name + QStringLiteral(".config.txt");
        const QString owner = QStringLiteral("configuration \"%1\"").arg(config.name);
        if (!claimText(listPath, owner) || !claimText(descPath, owner + QStringLiteral(" (description)")))
            return false;
        QByteArray moduleList;
        for (const ManifestModule& module : config.modules) {
            QByteArray line;
            if (!publishModule(module, line))
                return false;
            moduleList += line;
        }
        QByteArray description = local(config.title) + '\n';
        if (!config.description.isEmpty()) {
            QFile text(config.description);
            if (!text.open(QIODevice::ReadOnly))
                return fail(QStringLiteral("cannot read %1").arg(config.description));
            description = text.readAll();
        }
        if (!writeText(listPath, moduleList) || !writeText(descPath, description))
            return false;
        configList += configListLine(config, listPath, descPath);
    }

    QByteArray moduleList;
    for (const ManifestModule& module : manifest.modules) {
        QByteArray line;
        if (!publishModule(module, line))
            return false;
        moduleList += line;
    }
    return writeText(QStringLiteral("/configDesc.txt"), configList)
        && writeText(QStringLiteral("/moduleDesc.txt"), moduleList);
}
