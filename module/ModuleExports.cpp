// The library's exported entry points: thin forwarders to the module object.
//
// The one module object is built when the library is loaded; nothing else
// exists before the host calls in. Exceptions are not caught here: the only
// one the module lets out is the host-ready handler's, which the host expects.
#include "module/DownloadModule.h"
#include "protocol/ModuleApi.h"

namespace {

CDownloadModule theModule("Velmora.Download module", 1, 2, 9);

CHostLink theModuleLink()
{
    return theModule.hostLink();
}

// The layers below the module reach the host through this link, never
// through the module object.
[[maybe_unused]] const bool theModuleLinkRegistered = (CHostLink::setModuleLinkSource(&theModuleLink), true);

}  // namespace

extern "C" {

DM_EXPORT int GetModuleInfo(MODULE_INFO* out)
{
    theModule.GetModuleInfoWrap(out);
    return 0;
}

DM_EXPORT int Initialize(HostCallback send, HostCallback post, void* host, void* hostParam)
{
    return theModule.InitializeWrap(send, post, host, hostParam);
}

DM_EXPORT CModule* GetModule()
{
    return &theModule;
}

DM_EXPORT int ReceiveMessage(void* target, unsigned int code, intptr_t param1, intptr_t param2)
{
    return theModule.ReceiveMessageWrap(target, code, param1, param2);
}

}  // extern "C"
