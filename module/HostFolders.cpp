#include "module/HostFolders.h"

#include <cstring>
#include <vector>

#include <QCoreApplication>

#include "protocol/HostMessages.h"
#include "module/Module.h"
#include "storage/RecordText.h"

namespace {

constexpr std::size_t kWorkFolderUnits = 12288 / sizeof(char16_t);

QString applicationFolder()
{
    return QCoreApplication::applicationDirPath();
}

void* findMainWindow(HostCallback send, void* host)
{
    void* mainWindow = nullptr;
    coreInterfaceRecord query = mainWindowQuery(&mainWindow);
    send(host, HostMsg::FindInterface, reinterpret_cast<intptr_t>(&query), 0);
    return mainWindow;
}

QString workFolder(HostCallback send, void* mainWindow)
{
    if (!send)
        return QString();
    std::vector<char16_t> buffer(kWorkFolderUnits, 0);
    if (send(mainWindow, HostMsg::WorkFolder, reinterpret_cast<intptr_t>(buffer.data()), 0) != 0)
        return QString();
    return utf16FieldText(buffer.data(), buffer.size());
}

}  // namespace

QString GetPathByFolderType(HostCallback send, void* host, VM_FOLDERS type)
{
    if (!send)
        return applicationFolder();
    coreFolder record;
    std::memset(&record, 0, sizeof record);
    record.type = type;
    if (send(host, HostMsg::FolderByType, reinterpret_cast<intptr_t>(&record), 0) != 0)
        return applicationFolder();
    return utf16FieldText(record.path, sizeof record.path / sizeof record.path[0]);
}

QString GetPathByFolderType(const CModule* module, VM_FOLDERS type)
{
    return module ? GetPathByFolderType(module->sendCallback(), module->hostPointer(), type)
                  : applicationFolder();
}

QString GetWorkFolderFromMain(const CModule* module, void* mainWindow)
{
    return module ? workFolder(module->sendCallback(), mainWindow) : QString();
}

QString GetUserDir(HostCallback send, void* host)
{
    if (!send)
        return QString();
    return workFolder(send, findMainWindow(send, host));
}

QString GetUserDir(const CModule* module)
{
    return module ? GetUserDir(module->sendCallback(), module->hostPointer()) : QString();
}

coreInterfaceRecord mainWindowQuery(void** mainWindow)
{
    coreInterfaceRecord query;
    std::memset(&query, 0, sizeof query);
    copyToField(query.name, "MAINWINDOW");
    copyToField(query.vendor, "VELMORA");
    query.kind = 1;
    query.object = mainWindow;
    return query;
}
