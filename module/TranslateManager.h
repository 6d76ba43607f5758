#pragma once
// Registers the module's texts with the host's translator and looks them up.
// The module carries no translations: look-ups go through the application's
// translators, which the host fills from what it received with 3019.
#include <QString>

class CTranslateManager {
public:
    explicit CTranslateManager(const QString& context);

    QString GetContextName() const { return context_; }

    // Sends 3019 through the module's callback; nothing without a callback.
    // A string that does not fit its 1024-byte field is a programming error.
    void InsertTranslate(const char* context, const char* key, const char* text) const;
    void InsertTranslate(const char* key, const char* text) const;

    // The translation of key in this context, or key itself when no
    // translator knows it.
    QString Translate(const char* key, const char* comment) const;

private:
    QString context_;
};
