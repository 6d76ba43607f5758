#pragma once
// Installed configurations and module tables as plain tables, answered to the
// module the way a host answers 3086, 3087, 3088 and 3209, with what the
// module asked for kept for assertions. Hosts of several test areas forward
// these codes here.
#include <cstddef>
#include <cstring>
#include <map>
#include <vector>

#include <QByteArray>
#include <QString>

#include "protocol/HostMessages.h"
#include "storage/RecordText.h"
#include "protocol/UpdateRecords.h"

inline coreNameConfig installedConfig(const char* name, int major, int minor, int build,
                                      bool current = false, int moduleCount = 0, int tableId = 0)
{
    coreNameConfig config{};
    copyToField(config.name, QByteArray(name));
    config.major = major, config.minor = minor, config.build = build;
    config.current = current ? 1 : 0;
    config.moduleCount = moduleCount, config.moduleTableId = tableId;
    return config;
}

inline coreModuleEntry installedModule(const char* name, int major, int minor, int build, int fourth = 0)
{
    coreModuleEntry entry{};
    copyToField(entry.name, QByteArray(name));
    entry.major = major, entry.minor = minor, entry.build = build, entry.fourth = fourth;
    return entry;
}

class InstalledProductsHost {
public:
    static bool handles(unsigned int code)
    {
        return code == HostMsg::ConfigurationCount || code == HostMsg::ConfigurationList
               || code == HostMsg::ModuleTable || code == HostMsg::PathToConfigFile;
    }

    // A configuration together with its module table.
    void addConfiguration(const char* name, int major, int minor, int build, bool current,
                          int32_t tableId, std::vector<coreModuleEntry> modules)
    {
        configs.push_back(installedConfig(name, major, minor, build, current, int(modules.size()), tableId));
        tables[tableId] = std::move(modules);
    }

    int answer(unsigned int code, intptr_t param1)
    {
        switch (code) {
        case HostMsg::ConfigurationCount:
            *reinterpret_cast<int32_t*>(param1) = reportedCount >= 0 ? reportedCount : int32_t(configs.size());
            return 0;
        case HostMsg::ConfigurationList: {
            ++configListRequests;
            auto* request = reinterpret_cast<coreConfigListRequest*>(param1);
            if (const std::size_t n = qMin<std::size_t>(std::size_t(request->count), configs.size()))
                std::memcpy(request->configs, configs.data(), n * sizeof(coreNameConfig));
            return 0;
        }
        case HostMsg::ModuleTable: {
            auto* request = reinterpret_cast<coreModuleTableRequest*>(param1);
            tableRequests.push_back(*request);
            const auto found = tables.find(request->tableId);
            if (found == tables.end())
                return 1;
            if (const std::size_t n = qMin<std::size_t>(std::size_t(request->count), found->second.size()))
                std::memcpy(request->entries, found->second.data(), n * sizeof(coreModuleEntry));
            return 0;
        }
        case HostMsg::PathToConfigFile: {
            auto* request = reinterpret_cast<corePathToConfig*>(param1);
            pathRequests.push_back(QByteArray(reinterpret_cast<const char*>(request), int(sizeof *request)));
            const auto found = configPaths.find(fieldBytes(request->name));
            if (found == configPaths.end())
                return 1;
            std::memcpy(reinterpret_cast<char*>(request) + offsetof(corePathToConfig, path), found->second.utf16(),
                        sizeof(char16_t) * std::size_t(found->second.size()));
            return 0;
        }
        default:
            return 0;
        }
    }

    std::vector<coreNameConfig> configs;
    std::map<int32_t, std::vector<coreModuleEntry>> tables;  // by table id
    std::map<QByteArray, QString> configPaths;               // 3209 by name; others answer 1
    int32_t reportedCount = -1;  // 3086 answer; -1: the number of configs

    std::vector<coreModuleTableRequest> tableRequests;
    std::vector<QByteArray> pathRequests;  // the whole 2303-byte blocks
    int configListRequests = 0;
};
