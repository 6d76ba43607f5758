#pragma once
// The updater's command line: -u "<base64 of the backup folder>" <segment key>.
#include <QString>
#include <QStringList>

struct UpdaterOptions {
    QString backupFolder;
    QString key;
};

// Parses the arguments after the program name. The backup folder arrives
// base64-encoded (local 8-bit underneath) and may still carry the double
// quotes the module put around it, since no shell removes them. Returns
// false with error set for anything else.
bool parseUpdaterOptions(const QStringList& arguments, UpdaterOptions* options, QString* error);

// The same for a program's own argc/argv; on failure the error goes to
// standard error after the program's name, and the caller exits with 64.
bool parseUpdaterCommandLine(int argc, char** argv, const char* program, UpdaterOptions* options);
