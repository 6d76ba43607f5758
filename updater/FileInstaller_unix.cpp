#include "updater/FileInstaller.h"

#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include "updater/UpdaterLog.h"

namespace {

// Copy buffer; large enough that a 100 MiB module is a hundred reads.
constexpr std::size_t kCopyBufferSize = 1 << 20;

QByteArray native(const QString& path)
{
    return QFile::encodeName(path);
}

// Closes a descriptor on every path out of a function.
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return fd_; }
    // Closes now and reports the error of close itself (NFS reports late
    // write errors here).
    int close()
    {
        const int result = ::close(fd_);
        fd_ = -1;
        return result == 0 ? 0 : errno;
    }

private:
    int fd_;
};

int writeAll(int fd, const char* data, std::size_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size);
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return errno;
        }
        data += written;
        size -= std::size_t(written);
    }
    return 0;
}

// Copies everything from in to out and makes it durable.
int copyContent(int in, int out)
{
    std::vector<char> buffer(kCopyBufferSize);
    for (;;) {
        const ssize_t read = ::read(in, buffer.data(), buffer.size());
        if (read < 0) {
            if (errno == EINTR)
                continue;
            return errno;
        }
        if (read == 0)
            break;
        if (const int error = writeAll(out, buffer.data(), std::size_t(read)))
            return error;
    }
    return ::fsync(out) == 0 ? 0 : errno;
}

// Copies the file at from to a new file at to (which must not exist) with
// the given mode; on failure nothing is left at to.
int copyToNewFile(const QString& from, const QString& to, mode_t mode)
{
    Descriptor in(::open(native(from).constData(), O_RDONLY | O_CLOEXEC));
    if (in.get() < 0)
        return errno;
    Descriptor out(::open(native(to).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (out.get() < 0)
        return errno;
    int error = copyContent(in.get(), out.get());
    if (!error)
        error = out.close();
    if (error)
        ::unlink(native(to).constData());
    return error;
}

int makePath(const QString& folder)
{
    // QDir::mkpath hides the reason; the errno of the failing mkdir is what
    // the module is told, so the path is made one level at a time.
    const QStringList parts = QDir::cleanPath(folder).split('/', Qt::SkipEmptyParts);
    QString path = folder.startsWith('/') ? QString() : QString(".");
    for (const QString& part : parts) {
        path += '/' + part;
        if (::mkdir(native(path).constData(), 0755) != 0 && errno != EEXIST)
            return errno;
    }
    struct stat info;
    if (::stat(native(folder).constData(), &info) != 0)
        return errno;
    return S_ISDIR(info.st_mode) ? 0 : ENOTDIR;
}

// An updater killed while it copied leaves its temporary file beside the
// destination. The name carries the process id: a file whose process is gone
// belongs to nobody and is removed before this updater writes there.
void removeStaleTemporaries(const QString& folder)
{
    static const QRegularExpression name(QStringLiteral("^\\.updater-(\\d+)-\\d+\\.part$"));
    const QStringList found =
        QDir(folder).entryList({QStringLiteral(".updater-*.part")}, QDir::Files | QDir::Hidden | QDir::System);
    for (const QString& entry : found) {
        const QRegularExpressionMatch match = name.match(entry);
        if (!match.hasMatch())
            continue;
        const pid_t owner = pid_t(match.captured(1).toLongLong());
        if (owner != ::getpid() && ::kill(owner, 0) != 0 && errno == ESRCH)
            ::unlink(native(folder + '/' + entry).constData());
    }
}

}  // namespace

CFileInstaller::CFileInstaller(QString backupFolder, CUpdaterLog* log)
    : backupFolder_(std::move(backupFolder)), log_(log)
{
    runFolder_ = backupFolder_ + '/'
        + QDateTime::currentDateTime().toString("yyyyMMdd-HHmmss") + '-' + QString::number(::getpid());
}

QString CFileInstaller::runFolder() const
{
    return runFolder_;
}

QString CFileInstaller::lastBackup() const
{
    return lastBackup_;
}

QString CFileInstaller::freeBackupPath(const QString& destination) const
{
    const QString absolute = QFileInfo(destination).absoluteFilePath();
    QString candidate = runFolder_ + absolute;
    for (int n = 1; QFileInfo::exists(candidate) || QFileInfo(candidate).isSymLink(); ++n)
        candidate = runFolder_ + '/' + QString::number(n) + absolute;
    return candidate;
}

int CFileInstaller::backUp(const QString& destination, QString* backup)
{
    *backup = freeBackupPath(destination);
    if (const int error = makePath(QFileInfo(*backup).path()))
        return error;
    // A second name for the old file costs nothing and keeps its content
    // once the new file is renamed over the destination. Across file systems
    // (or where links are refused) the file is copied instead.
    if (::link(native(destination).constData(), native(*backup).constData()) == 0)
        return 0;
    struct stat info;
    if (::stat(native(destination).constData(), &info) != 0)
        return errno;
    return copyToNewFile(destination, *backup, info.st_mode & 07777);
}

int CFileInstaller::install(const QString& source, const QString& folder, bool createFolder)
{
    lastBackup_.clear();
    if (source.isEmpty() || folder.isEmpty())
        return EINVAL;

    struct stat sourceInfo;
    if (::stat(native(source).constData(), &sourceInfo) != 0)
        return errno;
    if (!S_ISREG(sourceInfo.st_mode))
        return S_ISDIR(sourceInfo.st_mode) ? EISDIR : EINVAL;

    if (createFolder) {
        if (const int error = makePath(folder))
            return error;
    }
    struct stat folderInfo;
    if (::stat(native(folder).constData(), &folderInfo) != 0)
        return errno;
    if (!S_ISDIR(folderInfo.st_mode))
        return ENOTDIR;

    removeStaleTemporaries(folder);
    const QString destination = folder + '/' + QFileInfo(source).fileName();
    struct stat destinationInfo;
    const bool replaces = ::lstat(native(destination).constData(), &destinationInfo) == 0;
    if (replaces && S_ISDIR(destinationInfo.st_mode))
        return EISDIR;

    // The temporary name does not grow with the file's name, so a name of
    // the longest length a folder allows can still be installed.
    const QString temporary = folder + QString("/.updater-%1-%2.part").arg(::getpid()).arg(++temporaryCounter_);
    const mode_t mode = (replaces && S_ISREG(destinationInfo.st_mode) ? destinationInfo.st_mode : sourceInfo.st_mode)
        & 07777;
    if (const int error = copyToNewFile(source, temporary, mode))
        return error;

    QString backup;
    if (replaces) {
        if (const int error = backUp(destination, &backup)) {
            ::unlink(native(temporary).constData());
            return error;
        }
    }
    if (::rename(native(temporary).constData(), native(destination).constData()) != 0) {
        const int error = errno;
        ::unlink(native(temporary).constData());
        return error;
    }
    lastBackup_ = backup;
    if (log_) {
        log_->write(replaces ? QString("installed %1 as %2, replaced file kept as %3").arg(source, destination, backup)
                             : QString("installed %1 as %2 (new file)").arg(source, destination));
    }
    return 0;
}
