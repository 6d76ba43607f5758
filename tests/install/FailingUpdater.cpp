// A stand-in updater that speaks the segment protocol but answers every
// request with EIO and touches no file: the module side must cope with an
// updater that fails everything.
#include <cerrno>
#include <cstdio>

#include <QStringList>

#include "updater/UpdaterOptions.h"
#include "updater/UpdaterServer.h"

int main(int argc, char** argv)
{
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    UpdaterOptions options;
    QString error;
    if (!parseUpdaterOptions(arguments, &options, &error)) {
        std::fprintf(stderr, "failing_updater: %s\n", error.toLocal8Bit().constData());
        return 64;
    }
    CUpdaterServer server(options.key, [](const umUpdateFile&) { return EIO; }, nullptr);
    return server.run();
}
