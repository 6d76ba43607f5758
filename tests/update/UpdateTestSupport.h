#pragma once
// Helpers for the update tests: list files written as the update server
// publishes them, installed configurations and module tables as the host
// reports them, and a host that answers 3086-3088 and 3209 from them.
#include <cstddef>
#include <cstring>
#include <map>
#include <vector>

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QTemporaryDir>

#include "module/HostMessages.h"
#include "module/RecordText.h"
#include "support/TestHost.h"
#include "update/DlModule.h"
#include "update/UpdateRecords.h"

inline QString writeListFile(const QTemporaryDir& dir, const QString& name, const QByteArray& bytes)
{
    const QString path = dir.filePath(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return QString();
    file.write(bytes);
    return path;
}

inline coreNameConfig installedConfig(const char* name, int major, int minor, int build,
                                      bool current = false, int moduleCount = 0, int tableId = 0)
{
    coreNameConfig config;
    std::memset(&config, 0, sizeof config);
    copyToField(config.name, QByteArray(name));
    config.major = major;
    config.minor = minor;
    config.build = build;
    config.current = current ? 1 : 0;
    config.moduleCount = moduleCount;
    config.moduleTableId = tableId;
    return config;
}

inline coreModuleEntry installedModule(const char* name, int major, int minor, int build,
                                       int fourth = 0)
{
    coreModuleEntry entry;
    std::memset(&entry, 0, sizeof entry);
    copyToField(entry.name, QByteArray(name));
    entry.major = major;
    entry.minor = minor;
    entry.build = build;
    entry.fourth = fourth;
    return entry;
}

// The texts of a list's records, one per record, for compact assertions.
inline std::vector<QByteArray> names(const dlListModule& list)
{
    std::vector<QByteArray> result;
    for (int i = 0; i < list.count; ++i)
        result.push_back(dlText(list.modules[i].name));
    return result;
}

// Answers the installed-product codes from plain tables and records what the
// module asked for.
class ProductsHost {
public:
    ProductsHost()
    {
        host.extraHandler = [this](unsigned int code, intptr_t param1, intptr_t) {
            return answer(code, param1);
        };
    }

    TestHost host;
    std::vector<coreNameConfig> configs;
    std::map<int32_t, std::vector<coreModuleEntry>> tables;  // by table id
    std::map<QByteArray, QString> configPaths;               // 3209 by name; others answer 1
    int32_t reportedCount = -1;  // 3086 answer; -1: the number of configs

    std::vector<coreModuleTableRequest> tableRequests;
    std::vector<QByteArray> pathRequests;  // the whole 2303-byte blocks
    int configListRequests = 0;

private:
    int answer(unsigned int code, intptr_t param1)
    {
        switch (code) {
        case HostMsg::ConfigurationCount:
            *reinterpret_cast<int32_t*>(param1) =
                reportedCount >= 0 ? reportedCount : int32_t(configs.size());
            return 0;
        case HostMsg::ConfigurationList: {
            ++configListRequests;
            auto* request = reinterpret_cast<coreConfigListRequest*>(param1);
            const std::size_t n = qMin<std::size_t>(std::size_t(request->count), configs.size());
            if (n > 0)
                std::memcpy(request->configs, configs.data(), n * sizeof(coreNameConfig));
            return 0;
        }
        case HostMsg::ModuleTable: {
            auto* request = reinterpret_cast<coreModuleTableRequest*>(param1);
            tableRequests.push_back(*request);
            const auto found = tables.find(request->tableId);
            if (found == tables.end())
                return 1;
            const std::size_t n =
                qMin<std::size_t>(std::size_t(request->count), found->second.size());
            if (n > 0)
                std::memcpy(request->entries, found->second.data(), n * sizeof(coreModuleEntry));
            return 0;
        }
        case HostMsg::PathToConfigFile: {
            auto* request = reinterpret_cast<corePathToConfig*>(param1);
            pathRequests.push_back(QByteArray(reinterpret_cast<const char*>(request),
                                              int(sizeof *request)));
            const auto found = configPaths.find(fieldBytes(request->name));
            if (found == configPaths.end())
                return 1;
            std::memcpy(reinterpret_cast<char*>(request) + offsetof(corePathToConfig, path),
                        found->second.utf16(),
                        sizeof(char16_t) * std::size_t(found->second.size()));
            return 0;
        }
        default:
            return 0;
        }
    }
};
