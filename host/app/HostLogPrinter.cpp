#include "host/app/HostLogPrinter.h"

#include <cstdio>
#include <mutex>

namespace {

// Guards the current printer and its output: records from several threads
// must come out as whole lines.
std::mutex printerMutex;
HostLogPrinter* currentPrinter = nullptr;

QString textOrNull(const char16_t* text)
{
    return text ? QString::fromUtf16(text) : QStringLiteral("(null)");
}

}  // namespace

HostLogPrinter::~HostLogPrinter()
{
    std::lock_guard<std::mutex> guard(printerMutex);
    if (currentPrinter == this)
        currentPrinter = nullptr;
}

bool HostLogPrinter::open(const QString& path)
{
    std::lock_guard<std::mutex> guard(printerMutex);
    file_.close();
    const bool opened = path.isEmpty()
        ? file_.open(stderr, QIODevice::WriteOnly | QIODevice::Unbuffered)
        : (file_.setFileName(path), file_.open(QIODevice::WriteOnly | QIODevice::Append));
    if (!opened) {
        error_ = QStringLiteral("cannot open log file %1: %2").arg(path, file_.errorString());
        return false;
    }
    currentPrinter = this;
    return true;
}

int HostLogPrinter::linesWritten() const
{
    std::lock_guard<std::mutex> guard(printerMutex);
    return lines_;
}

int HostLogPrinter::sink(const LogRecord* record)
{
    if (!record)
        return 1;
    const QByteArray line = formatRecord(*record).toUtf8() + '\n';
    std::lock_guard<std::mutex> guard(printerMutex);
    if (!currentPrinter)
        return 1;
    currentPrinter->write(line);
    if (currentPrinter->keepLines_)
        currentPrinter->kept_ << QString::fromUtf8(line.left(line.size() - 1));
    return 0;
}

QStringList HostLogPrinter::linesFrom(int first) const
{
    std::lock_guard<std::mutex> guard(printerMutex);
    return first < kept_.size() ? kept_.mid(first) : QStringList();
}

QString HostLogPrinter::formatRecord(const LogRecord& record)
{
    QString text = textOrNull(record.text);
    text.replace(QLatin1Char('\r'), QLatin1String("\\r"));
    text.replace(QLatin1Char('\n'), QLatin1String("\\n"));
    // One arg() call for all four: chained calls would expand a "%2" inside
    // the source or text a second time.
    return QStringLiteral("log: %1 type=%2 level=%3 %4")
        .arg(textOrNull(record.source), QString::number(record.type),
             QString::number(record.level), text);
}

void HostLogPrinter::write(const QByteArray& line)
{
    file_.write(line);
    file_.flush();
    ++lines_;
}
