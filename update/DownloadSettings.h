#pragma once
// Where the update server is and what lies in the download folder: the
// settings file "download.cfg" and the folder housekeeping of the dialog.
#include <QString>

// Used when "download.cfg" names no server.
extern const char kDefaultServerUrl[];

// The buffer the server address is read into and cut to (terminator included).
constexpr int kServerUrlBufferSize = 1024;

// The server's base URL from section "Address", key "Path" of the settings
// file, normalised (ServerUrl::kSettingsAddress) and then cut to what fits the
// buffer; the default when the file or the key is missing. The file is only
// read, never created or written.
QString readServerUrl(const QString& configFilePath);

// Section "Network", key "IdleTimeout" of the settings file: the seconds a
// connection may stay silent before it is given up and retried. fallback
// when the file or the key is missing or the value is not a positive number.
int readIdleTimeoutSeconds(const QString& configFilePath, int fallback);

// Deletes the "*.txt" files of folder (lists and description texts) and the
// "*.minisig" signatures fetched with them; partial downloads, the state
// file and the accepted serial stay.
void clearTextFiles(const QString& folder);
