#include "update/Unpack.h"

#include <QFile>
#include <QFileInfo>
#include <QString>
#include <zlib.h>

#include "update/SaveParamDownload.h"

namespace {

// The dot and "gz" that unpacking strips from the name.
constexpr int kGzipSuffixLength = 3;

bool hasGzipSuffix(const QString& path)
{
    return QFileInfo(path).suffix().compare("gz", Qt::CaseInsensitive) == 0;
}

}  // namespace

int decompressModule(void* gz, FILE* out)
{
    gzFile file = static_cast<gzFile>(gz);
    char buffer[kUnpackBufferSize];
    for (;;) {
        buffer[0] = 0;
        const int read = gzread(file, buffer, kUnpackBufferSize);
        if (read == -1) {
            // The message is not used: nothing reports it.
            int errnum = 0;
            gzerror(file, &errnum);
            return -1;
        }
        if (read <= 0) {
            // gzread returns 0 both at the end of the stream and when the
            // file ends in the middle of one; only gzerror tells them apart
            // (Z_BUF_ERROR, zlib manual on gzread). A truncated download is a
            // failed read, or the partial file would replace the whole one.
            int errnum = Z_OK;
            gzerror(file, &errnum);
            return errnum == Z_BUF_ERROR ? -1 : 0;
        }
        // A write the disk refuses (full, or past a size limit) fails the
        // unpacking: a short module must never reach the updater.
        if (std::fwrite(buffer, std::size_t(read), 1, out) != 1)
            return -1;
    }
}

bool unzipDownloadedModule(dlModule& module, const UnpackedRecorder& recordState)
{
    const QString path = QString::fromLocal8Bit(dlText(module.localPath));
    if (!QFile::exists(path) || !hasGzipSuffix(path))
        return false;

    const QByteArray nativePath = QFile::encodeName(path);
    gzFile gz = gzopen(nativePath.constData(), "rb");
    if (!gz)
        return false;

    const QString outputPath = path.left(path.size() - kGzipSuffixLength);
    FILE* out = std::fopen(QFile::encodeName(outputPath).constData(), "w+b");
    if (!out) {
        // Nothing else would ever read or close the handle.
        gzclose(gz);
        return false;
    }

    const int result = decompressModule(gz, out);
    gzclose(gz);
    // Buffered bytes are written at the close; its failure is a short file too.
    const bool closed = std::fclose(out) == 0;
    if (result != 0 || !closed)
        return false;

    // The record names the unpacked file before the packed one goes: a
    // terminal killed in between leaves a record that still finds its
    // module, where the other order left one naming a deleted file, whose
    // retry then threw the good unpacked module away.
    setDlText(module.localPath, outputPath.toLocal8Bit());
    if (recordState)
        recordState(module, dlStateFetched);
    QFile::remove(path);
    return true;
}

bool discardPackedLeftover(const dlModule& module)
{
    const QString path = QString::fromLocal8Bit(dlText(module.localPath));
    if (!hasGzipSuffix(path))
        return false;
    QFile::remove(path);
    QFile::remove(path.left(path.size() - kGzipSuffixLength));
    return true;
}

bool unzipDownloadedModule(dlModule& module, CSaveParamDownload& saveParam)
{
    return unzipDownloadedModule(module, [&saveParam](const dlModule& unpacked, int state) {
        saveParam.changeStateLastDownloadModule(unpacked, state);
    });
}
