#pragma once
// The host profile's installed configurations and their module tables, and
// the host's answers to the module's questions about them: 3086 (count),
// 3087 (the configurations), 3088 (a module table) and 3209 (the path of a
// configuration's file). Plain data once read; format in
// docs/HOST-PROTOCOL.md.
#include <QJsonObject>
#include <QString>
#include <QVector>

#include "protocol/UpdateRecords.h"

struct HostInstalledModule {
    QString name;
    int major = 0, minor = 0, build = 0;
    int fourth = 0;
};

struct HostInstalledConfiguration {
    QString name;
    QString secondName;
    int major = 0, minor = 0, build = 0;
    bool current = false;
    QString configFile;  // absolute
    QVector<HostInstalledModule> modules;
};

class HostInstalledProducts {
public:
    // Reads "installedConfigurations" of the profile's root object; an absent
    // key means none. False with error naming the entry and key at fault.
    // Relative paths are resolved against baseFolder; a configuration without
    // "configFile" keeps its file at configFolder/<name>.cfg.
    bool read(const QJsonObject& root, const QString& baseFolder, const QString& configFolder,
              QString& error);

    const QVector<HostInstalledConfiguration>& configurations() const { return configs_; }

    // The installed module of that name in the current configuration's
    // table (3089); null when there is no current configuration or it has
    // no such module.
    const HostInstalledModule* currentModule(const QString& name) const;

    // Answers a code of the four; false when code is none of them.
    bool answers(unsigned int code) const;
    int answer(unsigned int code, intptr_t param1) const;

private:
    int configurationCount(int32_t* count) const;
    int configurationList(const coreConfigListRequest* request) const;
    int moduleTable(const coreModuleTableRequest* request) const;
    int pathToConfigFile(corePathToConfig* request) const;

    QVector<HostInstalledConfiguration> configs_;
};
