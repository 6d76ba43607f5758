#pragma once
// The host profile: what the reference host answers the module with, read
// from a JSON file (format in docs/HOST-PROTOCOL.md). Plain data once loaded.
//
// Relative folder paths are resolved against the profile's own folder, so a
// profile and the tree it describes can be moved together. Keys the host does
// not know are ignored, so a profile written for a later host still loads.
#include <map>

#include <QByteArray>
#include <QString>
#include <QVector>

#include "host/app/HostInstalledProducts.h"

struct HostLanguage {
    QString name;
    bool current = false;
};

// Proxy settings as the user typed them; the host encodes the credentials
// when it hands them to the module.
struct HostProxy {
    int state = 0;
    QString host;
    int port = 0;
    QString user;
    QString password;
};

class HostProfile {
public:
    // Reads and checks the file; false with errorString() naming the file and
    // what is wrong with it.
    bool load(const QString& path);
    // The same for JSON text already in memory; relative paths are resolved
    // against baseFolder.
    bool parse(const QByteArray& json, const QString& baseFolder);
    QString errorString() const { return error_; }

    QString name() const { return name_; }
    // Absolute, cleaned paths by folder type.
    const std::map<int, QString>& folders() const { return folders_; }
    // The folder of that type; a null string when the profile has none.
    QString folder(int type) const;
    QString workFolder() const { return workFolder_; }  // absolute, or empty
    const QVector<HostLanguage>& languages() const { return languages_; }
    const HostProxy& proxy() const { return proxy_; }
    // The connection state the host starts in (3530); on-line unless the
    // profile says "online": false.
    bool online() const { return online_; }
    const HostInstalledProducts& installedProducts() const { return installed_; }

private:
    bool fail(const QString& message);

    QString name_;
    std::map<int, QString> folders_;
    QString workFolder_;
    QVector<HostLanguage> languages_;
    HostProxy proxy_;
    bool online_ = true;
    HostInstalledProducts installed_;
    QString error_;
};
