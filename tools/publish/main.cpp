// update-publisher: writes an update server tree from a release manifest.
//   update-publisher MANIFEST.json OUTPUT-FOLDER
// The output folder must be new or empty. Exit codes: 0 written, 1 usage,
// 2 the manifest was refused (the message names the entry), 3 writing failed.
#include <cstdio>

#include <QCoreApplication>
#include <QStringList>

#include "tools/publish/ServerTreeWriter.h"
#include "tools/publish/UpdateManifest.h"

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    if (arguments.size() != 3) {
        std::fprintf(stderr, "usage: update-publisher MANIFEST.json OUTPUT-FOLDER\n");
        return 1;
    }
    UpdateManifest manifest;
    if (!manifest.load(arguments[1])) {
        std::fprintf(stderr, "update-publisher: %s\n", qPrintable(manifest.errorString()));
        return 2;
    }
    ServerTreeWriter writer(arguments[2]);
    if (!writer.write(manifest)) {
        std::fprintf(stderr, "update-publisher: %s\n", qPrintable(writer.errorString()));
        return 3;
    }
    std::printf("update-publisher: %d configuration(s), %d general module(s) written to %s\n",
                int(manifest.configurations.size()), int(manifest.modules.size()),
                qPrintable(arguments[2]));
    return 0;
}
