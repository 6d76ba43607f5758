#pragma once
// Static forwarders that reach the module object's log from anywhere, through
// the module's host link. Each does nothing while there is no log.
#include "platform/BaseLog.h"

class LogHelper {
public:
    static BaseLog* GetLog();
    // The caller's size is not used: the log is always created for 3072.
    static void Create(const QString& name, eLogMsgType type, unsigned int size);
    static void Create(char* name, HostCallback callback, void* host, eLogMsgType type);
    static void Create(const QString& name, HostCallback callback, void* host);
    static void ShowLogInfo(coreLogMsgType type, coreLogMsgLevel level, const QString& text);
};
