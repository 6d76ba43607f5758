#include "module/FontManager.h"

namespace {

constexpr int kBodyPointSize = 9;

QString familyForLanguage(const QString& language)
{
    const QString name = language.toLower();
    if (name.startsWith(QLatin1String("chinese")) || name.startsWith(QLatin1String("japanese"))
        || name.startsWith(QLatin1String("korean")))
        return QStringLiteral("Noto Sans CJK SC");
    // DejaVu covers Latin, Cyrillic and Greek, and is on every Debian desktop.
    return QStringLiteral("DejaVu Sans");
}

}  // namespace

CFontManager::CFontManager(const QString& language)
    : language_(language)
    , family_(familyForLanguage(language))
{
}

int CFontManager::getFontSize(int element) const
{
    switch (element) {
    case font::ecCaption: return kBodyPointSize + 2;
    case font::ecStatus: return kBodyPointSize - 1;
    default: return kBodyPointSize;
    }
}

QFont CFontManager::getFont(font::elementCode element) const
{
    QFont result(element == font::ecFixed ? QStringLiteral("DejaVu Sans Mono") : family_,
                 getFontSize(element));
    if (element == font::ecCaption)
        result.setBold(true);
    return result;
}
