#pragma once
// The host's folders asked with the module object's callback and host.
#include "update/HostFolders.h"

class CModule;

QString GetPathByFolderType(const CModule* module, VM_FOLDERS type);
QString GetWorkFolderFromMain(const CModule* module, void* mainWindow);
QString GetUserDir(const CModule* module);
