#include "tools/publish/UpdateManifest.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSet>

#include "tools/publish/MinisignSigner.h"

namespace {

QString text(const QJsonObject& object, const char* key)
{
    return object.value(QLatin1String(key)).toString();
}

}  // namespace

bool isListField(const QString& text)
{
    return !text.contains(QLatin1Char(',')) && !text.contains(QLatin1Char('\n'))
        && !text.contains(QLatin1Char('\r'));
}

bool isThreePartVersion(const QString& text)
{
    static const QRegularExpression pattern(QStringLiteral("^\\d{1,4}\\.\\d{1,4}\\.\\d{1,4}$"));
    return pattern.match(text).hasMatch();
}

bool UpdateManifest::fail(const QString& message)
{
    error_ = message;
    return false;
}

bool UpdateManifest::load(const QString& manifestPath)
{
    QFile file(manifestPath);
    if (!file.open(QIODevice::ReadOnly))
        return fail(QStringLiteral("cannot read %1: %2").arg(manifestPath, file.errorString()));
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &parseError);
    if (!document.isObject())
        return fail(QStringLiteral("%1 is not a JSON object: %2")
                        .arg(manifestPath, parseError.errorString()));
    const QDir base = QFileInfo(manifestPath).absoluteDir();
    const QJsonObject root = document.object();

    auto readModule = [&](const QJsonObject& object, const QString& where, ManifestModule& out) {
        out.file = text(object, "file").isEmpty() ? QString() : base.absoluteFilePath(text(object, "file"));
        out.name = text(object, "name").isEmpty() ? QFileInfo(out.file).fileName() : text(object, "name");
        const QString entry = where + QStringLiteral(" \"%1\"").arg(out.name);
        out.version = text(object, "version");
        out.core = text(object, "core");
        out.date = text(object, "date");
        out.description = text(object, "description").isEmpty()
            ? QString()
            : base.absoluteFilePath(text(object, "description"));
        const QJsonValue type = object.value(QStringLiteral("type"));
        if (out.file.isEmpty() || !QFileInfo(out.file).isFile())
            return fail(entry + QStringLiteral(": no file to publish (\"file\": %1)").arg(out.file));
        if (out.name.isEmpty() || out.name.contains(QLatin1Char('/')) || !isListField(out.name))
            return fail(entry + QStringLiteral(": a name must be a plain file name without commas"));
        if (!isThreePartVersion(out.version))
            return fail(entry + QStringLiteral(": version \"%1\" is not a.b.c").arg(out.version));
        if (!isThreePartVersion(out.core))
            return fail(entry + QStringLiteral(": core \"%1\" is not a.b.c").arg(out.core));
        if (!type.isDouble() || type.toDouble() < 0 || type.toDouble() != int(type.toDouble()))
            return fail(entry + QStringLiteral(": type must be a whole number of 0 or more"));
        out.type = type.toInt();
        if (!isListField(out.date))
            return fail(entry + QStringLiteral(": the date \"%1\" holds a comma or a line break").arg(out.date));
        if (!out.description.isEmpty() && !QFileInfo(out.description).isFile())
            return fail(entry + QStringLiteral(": no description file %1").arg(out.description));
        return true;
    };

    if (root.contains(QStringLiteral("signature"))) {
        const QJsonObject signature = root.value(QStringLiteral("signature")).toObject();
        const QJsonValue serialValue = signature.value(QStringLiteral("serial"));
        const double number = serialValue.toDouble(-1);
        if (!serialValue.isDouble() || number < 0 || number != qint64(number) || number > 1e15)
            return fail(QStringLiteral("signature: serial must be a whole number of 0 or more"));
        serial = qint64(number);
        expires = text(signature, "expires");
        if (!isExpiryTime(expires))
            return fail(QStringLiteral("signature: expires \"%1\" is not YYYY-MM-DDTHH:MM:SSZ").arg(expires));
    }
    for (const QJsonValue& value : root.value(QStringLiteral("configurations")).toArray()) {
        const QJsonObject object = value.toObject();
        ManifestConfiguration config;
        config.name = text(object, "name");
        config.version = text(object, "version");
        config.title = text(object, "title");
        config.description = text(object, "description").isEmpty()
            ? QString()
            : base.absoluteFilePath(text(object, "description"));
        const QString entry = QStringLiteral("configuration \"%1\"").arg(config.name);
        if (config.name.isEmpty() || config.name.contains(QLatin1Char('/')) || !isListField(config.name))
            return fail(entry + QStringLiteral(": a name must be a plain name without commas"));
        if (!isThreePartVersion(config.version))
            return fail(entry + QStringLiteral(": version \"%1\" is not a.b.c").arg(config.version));
        // The title ends the line and may hold commas; a line break would end the list.
        if (config.title.contains(QLatin1Char('\n')) || config.title.contains(QLatin1Char('\r')))
            return fail(entry + QStringLiteral(": the title holds a line break"));
        if (!config.description.isEmpty() && !QFileInfo(config.description).isFile())
            return fail(entry + QStringLiteral(": no description file %1").arg(config.description));
        for (const QJsonValue& module : object.value(QStringLiteral("modules")).toArray()) {
            ManifestModule parsed;
            if (!readModule(module.toObject(), entry + QStringLiteral(", module"), parsed))
                return false;
            config.modules.push_back(parsed);
        }
        configurations.push_back(config);
    }
    for (const QJsonValue& value : root.value(QStringLiteral("modules")).toArray()) {
        ManifestModule parsed;
        if (!readModule(value.toObject(), QStringLiteral("module"), parsed))
            return false;
        modules.push_back(parsed);
    }
    return true;
}
