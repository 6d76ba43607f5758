#include "update/InstalledProducts.h"

#include <cstddef>
#include <cstring>

#include "protocol/HostMessages.h"
#include "storage/RecordText.h"

namespace {

// The host's answer to 3209 when it knows no configuration of that name.
constexpr int kUnknownConfiguration = 1;

}  // namespace

CInstalledProducts::CInstalledProducts(HostCallback send, void* host)
    : send_(send)
    , host_(host)
{
}

CInstalledProducts::CInstalledProducts(const CHostLink& link)
    : CInstalledProducts(link.sendCallback(), link.hostPointer())
{
}

CInstalledProducts::CInstalledProducts()
    : CInstalledProducts(CHostLink::moduleLink())
{
}

int CInstalledProducts::send(unsigned int code, void* record) const
{
    return send_(host_, code, reinterpret_cast<intptr_t>(record), 0);
}

std::vector<coreNameConfig> CInstalledProducts::configurations() const
{
    if (!send_)
        return {};
    int32_t count = 0;
    send(HostMsg::ConfigurationCount, &count);
    if (count < 0 || count > kMaxConfigurations)
        return {};
    // A count of 0 is asked for all the same, with an empty array: a host
    // may expect the list request after the count.
    std::vector<coreNameConfig> configs(static_cast<std::size_t>(count) + 1);
    std::memset(configs.data(), 0, configs.size() * sizeof(coreNameConfig));
    coreConfigListRequest request{count, configs.data()};
    send(HostMsg::ConfigurationList, &request);
    configs.pop_back();
    return configs;
}

std::vector<coreModuleEntry> CInstalledProducts::moduleTable(const coreNameConfig& config) const
{
    if (!send_ || config.moduleCount < 0 || config.moduleCount > kMaxModuleEntries)
        return {};
    // As for the configurations, an empty table is asked for with an empty
    // array; the spare entry keeps the array's address a real one.
    std::vector<coreModuleEntry> entries(static_cast<std::size_t>(config.moduleCount) + 1);
    std::memset(entries.data(), 0, entries.size() * sizeof(coreModuleEntry));
    coreModuleTableRequest request{config.moduleTableId, config.moduleCount, entries.data()};
    send(HostMsg::ModuleTable, &request);
    entries.pop_back();
    return entries;
}

QString CInstalledProducts::GetPathToConfigFile(const QString& name) const
{
    corePathToConfig request;
    std::memset(&request, 0, sizeof request);
    copyToField(request.name, name.toLocal8Bit());
    if (send_ && send(HostMsg::PathToConfigFile, &request) == kUnknownConfiguration)
        return QString();
    // The path starts at an odd offset of the packed block: copy it out
    // before reading it as 16-bit characters.
    char16_t path[sizeof request.path / sizeof(char16_t)];
    std::memcpy(path, reinterpret_cast<const char*>(&request) + offsetof(corePathToConfig, path),
                sizeof path);
    return utf16FieldText(path, sizeof path / sizeof path[0]);
}
