#pragma once
// Folders that the host knows: by folder type (3128) and the user's work
// folder (3503 to the main window), and the query that finds that window.
// Asked through the host's callback, so every layer above can use them.
#include <QString>

#include "protocol/HostRecords.h"

// Folder types the module asks for; the host may know more.
enum VM_FOLDERS : int {
    vfConfiguration = 2,
    vfDownload = 101,
    vfDefaultInstall = 150,
    vfConfigCopy = 151,
};

// The folder of that type, or the application's own folder when the host does
// not know the type or there is no callback.
QString GetPathByFolderType(HostCallback send, void* host, VM_FOLDERS type);

// The user's work folder as the main window reports it; empty when unknown.
QString GetWorkFolder(HostCallback send, void* mainWindow);
QString GetUserDir(HostCallback send, void* host);

// The lookup (3001) of the host's main window: the host writes the window's
// pointer into *mainWindow and leaves it as it was when it has none.
coreInterfaceRecord mainWindowQuery(void** mainWindow);
