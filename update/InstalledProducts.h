#pragma once
// What the host reports as installed: its configurations (3086, 3087), a
// configuration's module table (3088) and where a configuration's file lies
// (3209). Each call asks the host afresh; nothing is cached. Called on the
// GUI thread, like every host call.
#include <vector>

#include <QString>

#include "platform/HostLink.h"
#include "protocol/HostRecords.h"
#include "protocol/UpdateRecords.h"

class CInstalledProducts {
public:
    // A host that reports more entries than this is not believed.
    static constexpr int kMaxConfigurations = 65536;
    static constexpr int kMaxModuleEntries = 65536;

    // Without a callback every query answers as if nothing were installed.
    CInstalledProducts(HostCallback send, void* host);
    explicit CInstalledProducts(const CHostLink& link);
    // The host of the library's module object.
    CInstalledProducts();

    // The installed configurations: the count (3086), then that many zeroed
    // entries filled by the host (3087).
    std::vector<coreNameConfig> configurations() const;
    // config's module table: config.moduleCount zeroed entries filled by the
    // host (3088). Entries the host leaves alone stay zero.
    std::vector<coreModuleEntry> moduleTable(const coreNameConfig& config) const;
    // The path of the file of the configuration called name (3209); empty when
    // the host answers 1 or there is no host.
    QString GetPathToConfigFile(const QString& name) const;

private:
    int send(unsigned int code, void* record) const;

    HostCallback send_ = nullptr;
    void* host_ = nullptr;
};
