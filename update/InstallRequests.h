#pragma once
// How a downloaded record becomes a request to the updater. Used by the
// installation worker for each record it hands over, after unpacking it.
#include <functional>

#include <QString>

#include "update/DlModule.h"
#include "update/UpdaterSession.h"

enum InstallRoute {
    InstallAsFile,           // request filled: the record's file into its type's host folder
    InstallAsConfiguration,  // type 2: the caller hands the file to the host and asks for a configuration copy
    InstallRefused,          // a type text that is not a number, or no folder for the type: the run fails
};

// Routes record by its type text. A text that reads as 0 counts as type 0
// only when it is exactly "0". folderOfType answers the host's folder for a
// folder type (GetPathByFolderType); an empty answer refuses the record.
InstallRoute routeInstallRequest(const dlModule& record, const std::function<QString(int)>& folderOfType,
                                 UpdaterRequest* request);

// The configuration backup request: the configuration's file into
// "<copy folder>/Config", where the copy folder is the host's folder of
// type 151.
UpdaterRequest configCopyRequest(const QString& configFilePath, const QString& copyFolder);
