#pragma once
// The host's translator for the texts modules register with code 3019. It
// answers a key in its context with the registered text, so the module's
// look-ups (QCoreApplication::translate) show the defaults it handed over.
// A key nobody registered yields a null string, which lets Qt fall back to
// the key itself.
#include <QByteArray>
#include <QHash>
#include <QPair>
#include <QReadWriteLock>
#include <QTranslator>

class HostTranslator : public QTranslator {
public:
    // The text arrives as Windows-1252 bytes, the encoding the module's table
    // is written in (its "Downloading" text ends in the 1252 ellipsis, 0x85).
    // A key registered again takes the newer text.
    void insert(const QByteArray& context, const QByteArray& key, const QByteArray& text);
    int size() const;

    QString translate(const char* context, const char* sourceText,
                      const char* disambiguation = nullptr, int n = -1) const override;
    bool isEmpty() const override;

    static QString decodeWindows1252(const QByteArray& text);

private:
    // Look-ups may come from any thread that calls QCoreApplication::translate.
    mutable QReadWriteLock lock_;
    QHash<QPair<QByteArray, QByteArray>, QString> texts_;
};
