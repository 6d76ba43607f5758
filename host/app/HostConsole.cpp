#include "host/app/HostConsole.h"

#include <cstdio>

namespace {

void printLine(std::FILE* stream, const QString& text)
{
    const QByteArray line = QStringLiteral("module-host: %1\n").arg(text).toUtf8();
    std::fwrite(line.constData(), 1, size_t(line.size()), stream);
    std::fflush(stream);
}

}  // namespace

void printHostLine(const QString& text)
{
    printLine(stdout, text);
}

void printHostError(const QString& text)
{
    printLine(stderr, text);
}
