#pragma once
// The update server's URL, normalised: "http://" put in front when the scheme
// is missing, then cut into host, port, folder, file name and the absolute
// request path. Its three readers differ, and each keeps its own rules through
// the option set named after it below:
//  - The dialog's settings ("download.cfg") add "http://" unless the text
//    already starts with it in any case, so "ftp://h/p" becomes
//    "http://ftp://h/p" and a bare "h:8080/x" gets its scheme. They keep the
//    text whole (and in its original case); the dialog hands it on to the
//    HTTP client, which splits it.
//  - The proxy test (3517) and the HTTP client add it only when QUrl finds no
//    scheme or "file" (Qt 4 read a bare "host/path" as a file URL): "ftp://h/p"
//    keeps host "h", and in a bare "h:8080/x" QUrl takes "h" for the scheme,
//    so there is no host at all.
//  - The proxy test and the file fetch percent-decode the address (as UTF-8)
//    before reading it, so an escaped "/" ends the host and an escaped "?"
//    starts the query; the size probe and the settings do not.
//  - The HTTP client connects to the URL's port and names it in the host text
//    whenever the URL names one, ":80" included; without one, port 80 and the
//    bare host. The proxy test always tests port 80 and the bare host.
//  - Empty or malformed input is not refused: the settings make "" into
//    "http://"; the others end with an empty host and a request path of
//    "http://" and whatever path QUrl found.
//  - Nobody trims a trailing slash: "/Win32/" has folder "/Win32" and no file
//    name, and a file right under the root has folder "/".
#include <QByteArray>
#include <QString>

class ServerUrl {
public:
    enum class MissingScheme {
        // "http://" goes in front unless the text starts with it, in any case.
        UnlessTextStartsWithHttp,
        // "http://" goes in front when QUrl finds no scheme, or "file".
        WhenParsedSchemeIsEmptyOrFile,
    };
    struct Options {
        MissingScheme missingScheme;
        // Escapes are decoded before anything else, the result read as UTF-8.
        bool percentDecode;
        // The URL's port is used and named in the host text; otherwise the
        // port is 80 whatever the URL says, and the host text the bare host.
        bool usesUrlPort;
    };
    // The dialog's server address; only its text is used.
    static constexpr Options kSettingsAddress{MissingScheme::UnlessTextStartsWithHttp, false, true};
    // The server that the proxy test (3517) tries.
    static constexpr Options kProxyTestAddress{MissingScheme::WhenParsedSchemeIsEmptyOrFile, true, false};
    // The HTTP client's requests.
    static constexpr Options kSizeProbe{MissingScheme::WhenParsedSchemeIsEmptyOrFile, false, true};
    static constexpr Options kFileFetch{MissingScheme::WhenParsedSchemeIsEmptyOrFile, true, true};

    // Bytes as read from a settings file: Latin-1 unless percent-decoded.
    static ServerUrl fromBytes(const QByteArray& address, const Options& options);
    // Text that is percent-decoded is taken in its local 8-bit form.
    static ServerUrl fromText(const QString& address, const Options& options);

    // The address with its scheme: what the settings keep.
    const QString& text() const { return text_; }
    // QUrl's host, lower-cased; empty for a malformed URL.
    const QString& hostName() const { return hostName_; }
    // The host with ":port" when the port is the URL's own.
    const QString& host() const { return host_; }
    quint16 port() const { return port_; }
    // The path up to the last "/": "/" for a file under the root, "" without a path.
    const QString& folder() const { return folder_; }
    // The path's last part, decoded; empty after a trailing slash.
    const QString& fileName() const { return fileName_; }
    // Absolute and percent-encoded, always "http://", so that a proxy can pass
    // the request on: "http://host[:port]/path[?query]".
    const QString& requestPath() const { return requestPath_; }
    // "http://" + host + folder + "/", the Referer of a request.
    QString folderUrl() const;

private:
    ServerUrl(const QString& address, const Options& options);
    void takePort(int urlPort, const Options& options);

    QString text_;
    QString hostName_;
    QString host_;
    quint16 port_ = 80;
    QString folder_;
    QString fileName_;
    QString requestPath_;
};
