#include "host/app/HostProfile.h"

#include <cmath>
#include <limits>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

// Field readers: each returns false with a message naming the field when the
// value has the wrong type. An absent field keeps the caller's default.

bool readString(const QJsonObject& object, const QString& key, const QString& where,
                QString& out, QString& error)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull())
        return true;
    if (!value.isString()) {
        error = QStringLiteral("%1\"%2\" must be a string").arg(where, key);
        return false;
    }
    out = value.toString();
    return true;
}

bool readInteger(const QJsonObject& object, const QString& key, const QString& where,
                 int minimum, int maximum, int& out, QString& error)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull())
        return true;
    const double number = value.toDouble();
    if (!value.isDouble() || std::floor(number) != number || number < minimum
        || number > maximum) {
        error = QStringLiteral("%1\"%2\" must be an integer from %3 to %4")
                    .arg(where, key)
                    .arg(minimum)
                    .arg(maximum);
        return false;
    }
    out = int(number);
    return true;
}

bool readBool(const QJsonObject& object, const QString& key, const QString& where, bool& out,
              QString& error)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull())
        return true;
    if (!value.isBool()) {
        error = QStringLiteral("%1\"%2\" must be true or false").arg(where, key);
        return false;
    }
    out = value.toBool();
    return true;
}

QString resolvePath(const QString& path, const QString& baseFolder)
{
    return QDir::cleanPath(QDir(baseFolder).absoluteFilePath(path));
}

bool readFolders(const QJsonObject& root, const QString& baseFolder,
                 std::map<int, QString>& folders, QString& error)
{
    const QJsonValue value = root.value(QStringLiteral("folders"));
    if (value.isUndefined() || value.isNull())
        return true;
    if (!value.isObject()) {
        error = QStringLiteral("\"folders\" must be an object of folder type: path");
        return false;
    }
    const QJsonObject object = value.toObject();
    for (auto it = object.begin(); it != object.end(); ++it) {
        bool isNumber = false;
        const int type = it.key().toInt(&isNumber, 10);
        if (!isNumber) {
            error = QStringLiteral("folder type \"%1\" is not a number").arg(it.key());
            return false;
        }
        if (!it.value().isString() || it.value().toString().isEmpty()) {
            error = QStringLiteral("folder %1 must be a non-empty string").arg(type);
            return false;
        }
        folders[type] = resolvePath(it.value().toString(), baseFolder);
    }
    return true;
}

bool readLanguages(const QJsonObject& root, QVector<HostLanguage>& languages, QString& error)
{
    const QJsonValue value = root.value(QStringLiteral("languages"));
    if (value.isUndefined() || value.isNull())
        return true;
    if (!value.isArray()) {
        error = QStringLiteral("\"languages\" must be an array");
        return false;
    }
    const QJsonArray array = value.toArray();
    for (int i = 0; i < array.size(); ++i) {
        const QString where = QStringLiteral("language %1: ").arg(i);
        if (!array.at(i).isObject()) {
            error = where + QStringLiteral("must be an object");
            return false;
        }
        const QJsonObject object = array.at(i).toObject();
        HostLanguage language;
        if (!readString(object, QStringLiteral("name"), where, language.name, error)
            || !readBool(object, QStringLiteral("current"), where, language.current, error))
            return false;
        if (language.name.isEmpty()) {
            error = where + QStringLiteral("\"name\" is missing");
            return false;
        }
        languages.push_back(language);
    }
    return true;
}

bool readProxy(const QJsonObject& root, HostProxy& proxy, QString& error)
{
    const QJsonValue value = root.value(QStringLiteral("proxy"));
    if (value.isUndefined() || value.isNull())
        return true;
    if (!value.isObject()) {
        error = QStringLiteral("\"proxy\" must be an object");
        return false;
    }
    const QJsonObject object = value.toObject();
    const QString where = QStringLiteral("proxy: ");
    return readInteger(object, QStringLiteral("state"), where, std::numeric_limits<int>::min(),
                       std::numeric_limits<int>::max(), proxy.state, error)
        && readString(object, QStringLiteral("host"), where, proxy.host, error)
        && readInteger(object, QStringLiteral("port"), where, 0, 65535, proxy.port, error)
        && readString(object, QStringLiteral("user"), where, proxy.user, error)
        && readString(object, QStringLiteral("password"), where, proxy.password, error);
}

}  // namespace

bool HostProfile::load(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *this = HostProfile();
        error_ = QStringLiteral("%1: %2").arg(path, file.errorString());
        return false;
    }
    if (parse(file.readAll(), QFileInfo(path).absolutePath()))
        return true;
    error_ = QStringLiteral("%1: %2").arg(path, error_);
    return false;
}

bool HostProfile::parse(const QByteArray& json, const QString& baseFolder)
{
    *this = HostProfile();
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return fail(QStringLiteral("%1 at offset %2").arg(parseError.errorString())
                        .arg(parseError.offset));
    if (!document.isObject())
        return fail(QStringLiteral("the profile must be a JSON object"));

    const QJsonObject root = document.object();
    QString error;
    QString workFolder;
    if (!readString(root, QStringLiteral("name"), QString(), name_, error)
        || !readFolders(root, baseFolder, folders_, error)
        || !readString(root, QStringLiteral("workFolder"), QString(), workFolder, error)
        || !readLanguages(root, languages_, error) || !readProxy(root, proxy_, error)
        || !readBool(root, QStringLiteral("online"), QString(), online_, error)
        || !installed_.read(root, baseFolder, folders_.count(2) ? folder(2) : baseFolder, error))
        return fail(error);
    if (!workFolder.isEmpty())
        workFolder_ = resolvePath(workFolder, baseFolder);
    return true;
}

QString HostProfile::folder(int type) const
{
    const auto found = folders_.find(type);
    return found != folders_.end() ? found->second : QString();
}

bool HostProfile::fail(const QString& message)
{
    *this = HostProfile();
    error_ = message;
    return false;
}
