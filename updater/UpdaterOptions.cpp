#include "updater/UpdaterOptions.h"

#include <cstdio>
#include <cstdlib>

#include "net/Base64.h"

namespace {

QString stripQuotes(const QString& text)
{
    if (text.size() >= 2 && text.startsWith('"') && text.endsWith('"'))
        return text.mid(1, text.size() - 2);
    return text;
}

}  // namespace

bool parseUpdaterOptions(const QStringList& arguments, UpdaterOptions* options, QString* error)
{
    if (arguments.size() != 3 || arguments[0] != "-u") {
        *error = QString("usage: updater -u \"<base64 backup folder>\" <segment key>");
        return false;
    }
    const QByteArray encoded = stripQuotes(arguments[1]).toLatin1();
    char* decoded = nullptr;
    const int length = base64_decode(encoded.constData(), unsigned(encoded.size()), &decoded);
    if (length <= 0) {
        std::free(decoded);
        *error = QString("backup folder argument %1 is not base64 of a path").arg(arguments[1]);
        return false;
    }
    options->backupFolder = QString::fromLocal8Bit(decoded, length);
    std::free(decoded);
    options->key = arguments[2];
    if (options->key.isEmpty()) {
        *error = QString("empty segment key");
        return false;
    }
    return true;
}

bool parseUpdaterCommandLine(int argc, char** argv, const char* program, UpdaterOptions* options)
{
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    QString error;
    if (parseUpdaterOptions(arguments, options, &error))
        return true;
    std::fprintf(stderr, "%s: %s\n", program, error.toLocal8Bit().constData());
    return false;
}
