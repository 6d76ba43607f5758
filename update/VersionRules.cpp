#include "update/VersionRules.h"

namespace {

constexpr QChar kVersionSeparator = QLatin1Char('.');

// Plain digits up to this many cannot overflow an int.
constexpr int kMostPlainDigits = 9;

// A part's value as toInt(nullptr, 10) reads it. Parts are nearly always a
// few plain digits, and every offered list line has its version read; those
// are added up here rather than sent through the locale-aware conversion,
// which gets everything else (signs, blanks, long numbers, other text).
int versionPartValue(const QStringRef& part)
{
    if (part.size() > kMostPlainDigits)
        return part.toInt(nullptr, 10);
    int value = 0;
    for (const QChar c : part) {
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return part.toInt(nullptr, 10);
        value = value * 10 + (c.unicode() - '0');
    }
    return value;
}

// Takes the next part off rest. Without a further dot the whole rest is the
// part and stays the rest as well.
int takeVersionPart(QStringRef& rest)
{
    const int dot = rest.indexOf(kVersionSeparator);
    if (dot < 0)
        return versionPartValue(rest);
    const int part = versionPartValue(rest.left(dot));
    rest = rest.mid(dot + 1);
    return part;
}

}  // namespace

VersionParts splitVersion(const QString& version)
{
    // References into version: every offered list line goes through here.
    QStringRef rest(&version);
    VersionParts parts;
    parts.major = takeVersionPart(rest);
    parts.minor = takeVersionPart(rest);
    parts.build = versionPartValue(rest);
    return parts;
}

int32_t versionNumber(int major, int minor, int build)
{
    // Unsigned arithmetic wraps without undefined behaviour; the conversion
    // back gives the two's complement result a 32-bit int sum would have.
    const uint32_t number = uint32_t(major) * 10000u + uint32_t(minor) * 100u + uint32_t(build);
    return int32_t(number);
}

bool isNewVersionModule(int major, int minor, int build, int /*fourth*/, const QString& version,
                        const QString& /*versionExtra*/)
{
    const VersionParts offered = splitVersion(version);
    return versionNumber(offered.major, offered.minor, offered.build)
           > versionNumber(major, minor, build);
}

bool isGoodConfigForAuto(int major, int minor, int build, coreNameConfig cfg)
{
    return versionNumber(major, minor, build) >= versionNumber(cfg.major, cfg.minor, cfg.build);
}

int getCurrentConfigurationIndex(const coreNameConfig* configs, int count)
{
    if (!configs)
        return -1;
    for (int i = 0; i < count; ++i) {
        if (configs[i].current == 1)
            return i;
    }
    return -1;
}
