#pragma once
// Fonts for the module's windows, chosen for the host's current language so
// that scripts such as Cyrillic or CJK get a family that covers them.
#include <QFont>
#include <QString>

namespace font {
enum elementCode : int {
    ecDefault = 0,  // body text, lists
    ecCaption = 1,  // headings and the report's emphasised line
    ecStatus = 2,   // status bar and progress texts
    ecFixed = 3,    // file names and sizes in columns
};
}  // namespace font

class CFontManager {
public:
    explicit CFontManager(const QString& language);

    QString language() const { return language_; }
    QString family() const { return family_; }
    QFont getFont(font::elementCode element) const;
    // Point size for an element code; unknown codes get the body size.
    int getFontSize(int element) const;

private:
    QString language_;
    QString family_;
};
