#pragma once
// The four functions a host looks up in the library. They are the only symbols
// the library exports; everything else is hidden.
#include <cstdint>

#include "protocol/HostRecords.h"

class CModule;

#define DM_EXPORT __attribute__((visibility("default")))

extern "C" {
// Copies the module information record into out; 0 always, nothing copied for null.
DM_EXPORT int GetModuleInfo(MODULE_INFO* out);
// Stores the host's callbacks and pointers. Sends nothing.
DM_EXPORT int Initialize(HostCallback send, HostCallback post, void* host, void* hostParam);
// The library's one module object.
DM_EXPORT CModule* GetModule();
// Hands a host message to the module object and returns its answer.
DM_EXPORT int ReceiveMessage(void* target, unsigned int code, intptr_t param1, intptr_t param2);
}

// Function pointer types for hosts that look the exports up with dlsym.
typedef int (*GetModuleInfoFn)(MODULE_INFO*);
typedef int (*InitializeFn)(HostCallback, HostCallback, void*, void*);
typedef CModule* (*GetModuleFn)();
typedef int (*ReceiveMessageFn)(void*, unsigned int, intptr_t, intptr_t);
