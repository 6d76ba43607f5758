#pragma once
// What a publisher says about a release: configurations with their own
// module lists, the general module list, versions, types, dates and
// description texts. Read from a JSON manifest and checked against what the
// update module can parse, so that a bad entry is refused here and not found
// out by every terminal that reads the lists.
#include <QString>
#include <QVector>

struct ManifestModule {
    QString name;         // the installed file's name; the list's first field
    QString file;         // the file to publish, absolute
    QString version;      // a.b.c
    QString core;         // the core version it was built for, a.b.c
    int type = 1;         // host folder type it is installed into
    QString date;         // shown in the dialog's Date column
    QString description;  // a text file, absolute; empty: none
};

struct ManifestConfiguration {
    QString name;
    QString version;
    QString title;
    QString description;
    QVector<ManifestModule> modules;
};

class UpdateManifest {
public:
    // Reads and checks manifestPath; paths in it are relative to its folder.
    bool load(const QString& manifestPath);
    QString errorString() const { return error_; }

    QVector<ManifestConfiguration> configurations;
    QVector<ManifestModule> modules;
    // "signature": {"serial": N, "expires": "YYYY-MM-DDTHH:MM:SSZ"}, what a
    // signed release's trusted comments say; -1 and empty when not given.
    qint64 serial = -1;
    QString expires;

private:
    bool fail(const QString& message);
    QString error_;
};

// Whether text can stand in a list field: no comma, no line break.
bool isListField(const QString& text);
// Whether text is a version a.b.c of three decimal numbers.
bool isThreePartVersion(const QString& text);
