#include "update/HostFolders.h"

#include <cstring>
#include <vector>

#include <QCoreApplication>

#include "protocol/HostMessages.h"
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

}  // namespace

QString GetWorkFolder(HostCallback send, void* mainWindow)
{
    if (!send)
        return QString();
    std::vector<char16_t> buffer(kWorkFolderUnits, 0);
    if (send(mainWindow, HostMsg::WorkFolder, reinterpret_cast<intptr_t>(buffer.data()), 0) != 0)
        return QString();
    return utf16FieldText(buffer.data(), buffer.size());
}

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

QString GetUserDir(HostCallback send, void* host)
{
    if (!send)
        return QString();
    return GetWorkFolder(send, findMainWindow(send, host));
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
