#include "module/HostFolders.h"

#include "module/Module.h"

QString GetPathByFolderType(const CModule* module, VM_FOLDERS type)
{
    return module ? GetPathByFolderType(module->sendCallback(), module->hostPointer(), type)
                  : GetPathByFolderType(nullptr, nullptr, type);
}

QString GetWorkFolderFromMain(const CModule* module, void* mainWindow)
{
    return module ? GetWorkFolder(module->sendCallback(), mainWindow) : QString();
}

QString GetUserDir(const CModule* module)
{
    return module ? GetUserDir(module->sendCallback(), module->hostPointer()) : QString();
}
