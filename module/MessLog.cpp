#include "module/MessLog.h"

#include <ctime>

#include <QFile>
#include <QTextStream>

messLog::messLog(const char* fileName, const char* parentName, CriticalLevel threshold)
    : fileName_(QString::fromLocal8Bit(fileName))
    , parentName_(QString::fromLocal8Bit(parentName))
    , threshold_(threshold)
{
}

messLog::messLog(const char* parentName)
    : fileName_(QStringLiteral("noname.log"))
    , parentName_(QString::fromLocal8Bit(parentName))
    , threshold_(clInfo)
{
    fileName_ = createNameForParent();
}

messLog::messLog()
    : messLog("NoParent")
{
}

QString messLog::createNameForParent() const
{
    return QStringLiteral("./Temp/") + parentName_ + QStringLiteral(".log");
}

void messLog::setNameFile(const QString& fileName)
{
    fileName_ = fileName;
}

void messLog::setParentName(const QString& name, bool rename)
{
    parentName_ = name;
    if (rename)
        fileName_ = createNameForParent();
}

void messLog::printData(const QString& line)
{
    if (fileName_.isEmpty())
        return;
    QFile file(fileName_);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Append))
        return;
    QTextStream stream(&file);  // the locale's encoding, as the rest of the host's text files
    stream << line << "\r\n";
}

void messLog::addMessage(const QString& text, CriticalLevel level)
{
    if (level > threshold_)
        return;
    const std::time_t now = std::time(nullptr);
    if (now < 0)
        return;
    std::tm local{};
    localtime_r(&now, &local);
    printData(messLogStamp(local.tm_mday, local.tm_mon + 1, local.tm_hour, local.tm_min,
                           local.tm_sec)
              + QStringLiteral(" - ") + text);
}

QString messLogStamp(int day, int month, int hour, int minute, int second)
{
    return QString::asprintf("%02d.%02d %02d.%02d.%02d", day, month, hour, minute, second);
}
