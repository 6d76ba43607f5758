// The server URL under each reader's options: per address, the settings'
// text, the host the proxy test tries, and the size probe's and file fetch's
// targets.
#include <gtest/gtest.h>

#include "net/ServerUrl.h"

namespace {

struct Target {
    const char* host;  // the Host field: ":port" when the URL names one
    int port;
    const char* folder;
    const char* fileName;
    const char* request;
};

struct Row {
    const char* address;
    const char* settings;    // the text: the settings never split it
    const char* testedHost;  // always on port 80
    Target probe;
    Target fetch;  // none: the probe's
};

const Row kRows[] = {
    // No scheme, no port, a file under the root.
    {"up.example/Win32", "http://up.example/Win32", "up.example",
     {"up.example", 80, "/", "Win32", "http://up.example/Win32"}, {}},
    // The settings keep a capital scheme; QUrl lower-cases it and the host.
    {"HTTP://Up.Example/Win32/", "HTTP://Up.Example/Win32/", "up.example",
     {"up.example", 80, "/Win32", "", "http://up.example/Win32/"}, {}},
    {"http://up.example:8080/Win32/lists/mod.txt", "http://up.example:8080/Win32/lists/mod.txt", "up.example",
     {"up.example:8080", 8080, "/Win32/lists", "mod.txt", "http://up.example:8080/Win32/lists/mod.txt"}, {}},
    // A named port 80 stays in the host text.
    {"http://up.example:80", "http://up.example:80", "up.example",
     {"up.example:80", 80, "", "", "http://up.example:80"}, {}},
    // Without "//" QUrl reads "up.example" as the scheme.
    {"up.example:8080/Win32", "http://up.example:8080/Win32", "", {"", 80, "8080", "Win32", "http://8080/Win32"}, {}},
    // Decoded first, an escaped "?" starts the query.
    {"http://up.example/docs/my%20file%3Fv.txt?v=2", "http://up.example/docs/my%20file%3Fv.txt?v=2", "up.example",
     {"up.example", 80, "/docs", "my file?v.txt", "http://up.example/docs/my%20file%3Fv.txt?v=2"},
     {"up.example", 80, "/docs", "my file", "http://up.example/docs/my%20file?v.txt?v=2"}},
    // Decoded first, an escaped "/" ends the host.
    {"up.example%2Fmirror/Win32", "http://up.example%2Fmirror/Win32", "up.example",
     {"", 80, "/", "Win32", "http:///Win32"},
     {"up.example", 80, "/mirror", "Win32", "http://up.example/mirror/Win32"}},
    // "file" counts as no scheme, as Qt 4 read a bare "host/path" as a file URL.
    {"file://up.example/x", "http://file://up.example/x", "file",
     {"file", 80, "//up.example", "x", "http://file//up.example/x"}, {}},
    {"ftp://up.example/x", "http://ftp://up.example/x", "up.example",
     {"up.example", 80, "/", "x", "http://up.example/x"}, {}},
    // Empty or malformed: nothing is refused, the host is empty.
    {"", "http://", "", {"", 80, "", "", "http://"}, {}},
    {"http://bad host/x", "http://bad host/x", "", {"", 80, "/", "x", "http:///x"}, {}},
};

void expectTarget(const char* reader, const Target& expected, const ServerUrl& url)
{
    SCOPED_TRACE(reader);
    EXPECT_EQ(expected.host, url.host().toStdString());
    EXPECT_EQ(expected.port, url.port());
    EXPECT_EQ(expected.folder, url.folder().toStdString());
    EXPECT_EQ(expected.fileName, url.fileName().toStdString());
    EXPECT_EQ(expected.request, url.requestPath().toStdString());
}

}  // namespace

TEST(ServerUrl, EachReaderNormalisesTheAddressItsOwnWay)
{
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.address);
        const ServerUrl settings = ServerUrl::fromBytes(row.address, ServerUrl::kSettingsAddress);
        EXPECT_EQ(row.settings, settings.text().toStdString());

        const ServerUrl tested = ServerUrl::fromBytes(row.address, ServerUrl::kProxyTestAddress);
        EXPECT_EQ(row.testedHost, tested.host().toStdString());
        EXPECT_EQ(80, tested.port());

        const QString text = QString::fromLatin1(row.address);
        expectTarget("probe", row.probe, ServerUrl::fromText(text, ServerUrl::kSizeProbe));
        expectTarget("fetch", row.fetch.host ? row.fetch : row.probe, ServerUrl::fromText(text, ServerUrl::kFileFetch));
    }
}
