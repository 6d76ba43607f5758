#include "updater/UpdaterLog.h"

#include <unistd.h>

#include <QDateTime>
#include <QFile>

CUpdaterLog::CUpdaterLog(const QString& path)
{
    if (!path.isEmpty())
        file_ = std::fopen(QFile::encodeName(path).constData(), "ae");
}

CUpdaterLog::~CUpdaterLog()
{
    if (file_)
        std::fclose(file_);
}

void CUpdaterLog::write(const QString& text)
{
    FILE* out = file_ ? file_ : stderr;
    const QByteArray line = QString("%1 [%2] %3\n")
                                .arg(QDateTime::currentDateTime().toString(Qt::ISODate))
                                .arg(::getpid())
                                .arg(text)
                                .toLocal8Bit();
    std::fwrite(line.constData(), 1, std::size_t(line.size()), out);
    std::fflush(out);
}
