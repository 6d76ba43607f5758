#include "platform/LogHelper.h"

#include "platform/HostLink.h"

BaseLog* LogHelper::GetLog()
{
    return CHostLink::moduleLink().log();
}

void LogHelper::Create(const QString& name, eLogMsgType type, unsigned int)
{
    if (BaseLog* log = GetLog())
        log->Create(name, type, 3072u);
}

void LogHelper::Create(char* name, HostCallback callback, void* host, eLogMsgType type)
{
    if (BaseLog* log = GetLog())
        log->Create(name, callback, host, type);
}

void LogHelper::Create(const QString& name, HostCallback callback, void* host)
{
    if (BaseLog* log = GetLog())
        log->Create(name, callback, host);
}

void LogHelper::ShowLogInfo(coreLogMsgType type, coreLogMsgLevel level, const QString& text)
{
    if (BaseLog* log = GetLog())
        log->ShowLogInfo(type, level, text);
}
