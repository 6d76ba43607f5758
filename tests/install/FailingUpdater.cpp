// A stand-in updater that speaks the segment protocol but answers every
// request with EIO and touches no file: the module side must cope with an
// updater that fails everything.
#include <cerrno>

#include "updater/UpdaterOptions.h"
#include "updater/UpdaterServer.h"

int main(int argc, char** argv)
{
    UpdaterOptions options;
    if (!parseUpdaterCommandLine(argc, argv, "failing_updater", &options))
        return 64;
    CUpdaterServer server(options.key, [](const umUpdateFile&) { return EIO; }, nullptr);
    return server.run();
}
