#include "host/app/HostInstalledProducts.h"

#include <cstddef>
#include <cstring>

#include <QDir>
#include <QJsonArray>
#include <QRegularExpression>

#include "protocol/HostMessages.h"
#include "storage/RecordText.h"

namespace {

// Module tables are named by the configuration's position, counted from 1 so
// that a zeroed request names no table.
int32_t tableIdOf(int index)
{
    return int32_t(index + 1);
}

bool readVersion(const QJsonObject& object, const QString& where, int& major, int& minor,
                 int& build, QString& error)
{
    const QJsonValue value = object.value(QStringLiteral("version"));
    static const QRegularExpression form(QStringLiteral("^(\\d{1,4})\\.(\\d{1,4})\\.(\\d{1,4})$"));
    const QRegularExpressionMatch match = form.match(value.toString());
    if (!value.isString() || !match.hasMatch()) {
        error = where + QStringLiteral("\"version\" must be a text a.b.c of three numbers");
        return false;
    }
    major = match.captured(1).toInt();
    minor = match.captured(2).toInt();
    build = match.captured(3).toInt();
    return true;
}

bool readText(const QJsonObject& object, const QString& key, const QString& where, bool required,
              QString& out, QString& error)
{
    const QJsonValue value = object.value(key);
    if ((value.isUndefined() || value.isNull()) && !required)
        return true;
    if (!value.isString() || (required && value.toString().isEmpty())) {
        error = where + QStringLiteral("\"%1\" must be a%2 string").arg(key, required ? " non-empty" : "");
        return false;
    }
    out = value.toString();
    return true;
}

bool readModules(const QJsonObject& object, const QString& where,
                 QVector<HostInstalledModule>& modules, QString& error)
{
    const QJsonValue value = object.value(QStringLiteral("modules"));
    if (value.isUndefined() || value.isNull())
        return true;
    if (!value.isArray()) {
        error = where + QStringLiteral("\"modules\" must be an array");
        return false;
    }
    const QJsonArray array = value.toArray();
    for (int i = 0; i < array.size(); ++i) {
        const QString at = where + QStringLiteral("module %1: ").arg(i);
        if (!array.at(i).isObject()) {
            error = at + QStringLiteral("must be an object");
            return false;
        }
        const QJsonObject entry = array.at(i).toObject();
        HostInstalledModule module;
        const QJsonValue fourth = entry.value(QStringLiteral("fourth"));
        if (!readText(entry, QStringLiteral("name"), at, true, module.name, error)
            || !readVersion(entry, at, module.major, module.minor, module.build, error))
            return false;
        if (!fourth.isUndefined() && !fourth.isNull()) {
            if (!fourth.isDouble() || fourth.toDouble() != double(fourth.toInt())) {
                error = at + QStringLiteral("\"fourth\" must be an integer");
                return false;
            }
            module.fourth = fourth.toInt();
        }
        modules.push_back(module);
    }
    return true;
}

bool readConfiguration(const QJsonValue& value, const QString& where, const QString& baseFolder,
                       const QString& configFolder, HostInstalledConfiguration& config,
                       QString& error)
{
    if (!value.isObject()) {
        error = where + QStringLiteral("must be an object");
        return false;
    }
    const QJsonObject object = value.toObject();
    const QJsonValue current = object.value(QStringLiteral("current"));
    if (!current.isUndefined() && !current.isNull() && !current.isBool()) {
        error = where + QStringLiteral("\"current\" must be true or false");
        return false;
    }
    config.current = current.toBool(false);
    QString configFile;
    if (!readText(object, QStringLiteral("name"), where, true, config.name, error)
        || !readVersion(object, where, config.major, config.minor, config.build, error)
        || !readText(object, QStringLiteral("secondName"), where, false, config.secondName, error)
        || !readText(object, QStringLiteral("configFile"), where, false, configFile, error)
        || !readModules(object, where, config.modules, error))
        return false;
    config.configFile = configFile.isEmpty()
                            ? QDir::cleanPath(configFolder + QLatin1Char('/') + config.name + ".cfg")
                            : QDir::cleanPath(QDir(baseFolder).absoluteFilePath(configFile));
    return true;
}

}  // namespace

bool HostInstalledProducts::read(const QJsonObject& root, const QString& baseFolder,
                                 const QString& configFolder, QString& error)
{
    configs_.clear();
    const QJsonValue value = root.value(QStringLiteral("installedConfigurations"));
    if (value.isUndefined() || value.isNull())
        return true;
    if (!value.isArray()) {
        error = QStringLiteral("\"installedConfigurations\" must be an array");
        return false;
    }
    const QJsonArray array = value.toArray();
    for (int i = 0; i < array.size(); ++i) {
        HostInstalledConfiguration config;
        if (!readConfiguration(array.at(i), QStringLiteral("installed configuration %1: ").arg(i),
                               baseFolder, configFolder, config, error)) {
            configs_.clear();
            return false;
        }
        configs_.push_back(config);
    }
    return true;
}

bool HostInstalledProducts::answers(unsigned int code) const
{
    return code == HostMsg::ConfigurationCount || code == HostMsg::ConfigurationList
           || code == HostMsg::ModuleTable || code == HostMsg::PathToConfigFile;
}

int HostInstalledProducts::answer(unsigned int code, intptr_t param1) const
{
    switch (code) {
    case HostMsg::ConfigurationCount:
        return configurationCount(reinterpret_cast<int32_t*>(param1));
    case HostMsg::ConfigurationList:
        return configurationList(reinterpret_cast<const coreConfigListRequest*>(param1));
    case HostMsg::ModuleTable:
        return moduleTable(reinterpret_cast<const coreModuleTableRequest*>(param1));
    case HostMsg::PathToConfigFile:
        return pathToConfigFile(reinterpret_cast<corePathToConfig*>(param1));
    default:
        return 0;
    }
}

int HostInstalledProducts::configurationCount(int32_t* count) const
{
    *count = int32_t(configs_.size());
    return 0;
}

// Fills no more entries than the module allocated.
int HostInstalledProducts::configurationList(const coreConfigListRequest* request) const
{
    if (!request->configs)
        return 1;
    const int filled = qMin(int(request->count), configs_.size());
    for (int i = 0; i < filled; ++i) {
        const HostInstalledConfiguration& config = configs_[i];
        coreNameConfig record;
        std::memset(&record, 0, sizeof record);
        copyToField(record.name, config.name.toLocal8Bit());
        record.build = config.build;
        record.minor = config.minor;
        record.major = config.major;
        record.moduleCount = int32_t(config.modules.size());
        record.moduleTableId = tableIdOf(i);
        record.current = config.current ? 1 : 0;
        copyToField(record.secondName, config.secondName.toLocal8Bit());
        std::memcpy(&request->configs[i], &record, sizeof record);
    }
    return 0;
}

int HostInstalledProducts::moduleTable(const coreModuleTableRequest* request) const
{
    const int index = int(request->tableId) - 1;
    if (index < 0 || index >= configs_.size() || !request->entries)
        return 1;
    const QVector<HostInstalledModule>& modules = configs_[index].modules;
    const int filled = qMin(int(request->count), modules.size());
    for (int i = 0; i < filled; ++i) {
        coreModuleEntry entry;
        std::memset(&entry, 0, sizeof entry);
        copyToField(entry.name, modules[i].name.toLocal8Bit());
        entry.build = modules[i].build;
        entry.minor = modules[i].minor;
        entry.major = modules[i].major;
        entry.fourth = modules[i].fourth;
        std::memcpy(&request->entries[i], &entry, sizeof entry);
    }
    return 0;
}

// 1 tells the module that no configuration has that name.
int HostInstalledProducts::pathToConfigFile(corePathToConfig* request) const
{
    const QByteArray name = fieldBytes(request->name);
    for (const HostInstalledConfiguration& config : configs_) {
        if (config.name.toLocal8Bit() != name)
            continue;
        // The path field starts at an odd offset: write it as bytes.
        constexpr int units = int(sizeof request->path / sizeof(char16_t));
        const int length = qMin(config.configFile.size(), units - 1);
        char* path = reinterpret_cast<char*>(request) + offsetof(corePathToConfig, path);
        std::memset(path, 0, sizeof request->path);
        std::memcpy(path, config.configFile.utf16(), std::size_t(length) * sizeof(char16_t));
        return 0;
    }
    return 1;
}

const HostInstalledModule* HostInstalledProducts::currentModule(const QString& name) const
{
    for (const HostInstalledConfiguration& config : configs_) {
        if (!config.current)
            continue;
        for (const HostInstalledModule& module : config.modules) {
            if (module.name == name)
                return &module;
        }
        return nullptr;
    }
    return nullptr;
}
