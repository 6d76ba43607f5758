#pragma once
// The stream interface through which the module composes log messages for the
// host's log sink. A message is one chain: type, level, text pieces, lmSend.
#include <QChar>
#include <QString>

#include "protocol/HostRecords.h"

// Message type as the host's sink receives it; the module uses 0 and 1.
enum coreLogMsgType : int { logTypeMessage = 0, logTypeError = 1 };

// Message level as the host's sink receives it; the module uses 0 to 5.
enum coreLogMsgLevel : int {
    logLevel0 = 0, logLevel1 = 1, logLevel2 = 2, logLevel3 = 3, logLevel4 = 4, logLevel5 = 5
};

// Manipulators. The level they set runs backwards to their value on purpose:
// code elsewhere was written against this mapping and the host reads levels.
enum eLogMsgType : int {
    lmLevel0 = 0,  // level := 0
    lmLevel5 = 1,  // level := 5
    lmLevel4 = 2,  // level := 4
    lmLevel3 = 3,  // level := 3
    lmLevel2 = 4,  // level := 2
    lmSend = 5,    // hand the message to the sink, then empty the text
};

class BaseLog {
public:
    virtual ~BaseLog() = default;

    virtual void Create(const QString& name, eLogMsgType type, unsigned int size) = 0;
    virtual void Create(char* name, HostCallback callback, void* host, eLogMsgType type) = 0;
    virtual void Create(const QString& name, HostCallback callback, void* host) = 0;
    virtual void ShowLogInfo(coreLogMsgType type, coreLogMsgLevel level, const QString& text) = 0;

    virtual BaseLog& operator<<(coreLogMsgType type) = 0;
    virtual BaseLog& operator<<(coreLogMsgLevel level) = 0;
    virtual BaseLog& operator<<(eLogMsgType manipulator) = 0;
    virtual BaseLog& operator<<(QChar c) = 0;
    virtual BaseLog& operator<<(char c) = 0;
    virtual BaseLog& operator<<(short n) = 0;
    virtual BaseLog& operator<<(unsigned short n) = 0;
    virtual BaseLog& operator<<(int n) = 0;
    virtual BaseLog& operator<<(unsigned int n) = 0;
    virtual BaseLog& operator<<(long n) = 0;
    virtual BaseLog& operator<<(unsigned long n) = 0;
    virtual BaseLog& operator<<(float f) = 0;
    virtual BaseLog& operator<<(double d) = 0;
    virtual BaseLog& operator<<(const char* text) = 0;
    virtual BaseLog& operator<<(const QString& text) = 0;
};
