#pragma once
// What the layers under the module object need of the host: the synchronous
// callback with the host pointer it is called with, and the module's log.
//
// Classes below module/ take a link in their constructors; their
// argument-less constructors use moduleLink(), the library's one module
// object as it is now. The module object registers itself as that source
// when the library is loaded, so nothing below it includes module/.
#include <cstdint>

#include "protocol/HostRecords.h"

class BaseLog;

class CHostLink {
public:
    CHostLink() = default;
    CHostLink(HostCallback send, void* host, BaseLog* log = nullptr)
        : send_(send), host_(host), log_(log)
    {
    }

    HostCallback sendCallback() const { return send_; }
    void* hostPointer() const { return host_; }
    BaseLog* log() const { return log_; }
    bool hasHost() const { return send_ != nullptr; }

    // Sends code with the host pointer as target; -1 without a callback.
    int send(unsigned int code, intptr_t param1, intptr_t param2 = 0) const;

    // The library's module object's link; empty before it is registered.
    static CHostLink moduleLink();
    // Called once, by the library's module object.
    static void setModuleLinkSource(CHostLink (*source)());

private:
    HostCallback send_ = nullptr;
    void* host_ = nullptr;
    BaseLog* log_ = nullptr;
};
