#include "platform/HostLink.h"

namespace {

// Constant-initialised, so it is null before any constructor of the library
// runs and whatever order the objects are built in.
CHostLink (*moduleLinkSource)() = nullptr;

}  // namespace

int CHostLink::send(unsigned int code, intptr_t param1, intptr_t param2) const
{
    return send_ ? send_(host_, code, param1, param2) : -1;
}

CHostLink CHostLink::moduleLink()
{
    return moduleLinkSource ? moduleLinkSource() : CHostLink();
}

void CHostLink::setModuleLinkSource(CHostLink (*source)())
{
    moduleLinkSource = source;
}
