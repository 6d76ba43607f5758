// The built module-host program run as a process on a temporary profile.
#include <memory>
#include <tuple>

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "ModuleHostRun.h"

namespace {

class ModuleHostProgramTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(dir.isValid()); }

    QString writeProfile(const QByteArray& json, const char* name = "p.json")
    {
        writeText(dir.filePath(name), json);
        return dir.filePath(name);
    }

    QTemporaryDir dir;
};

TEST_F(ModuleHostProgramTest, RegistersTheModuleAndForwardsTheModuleArguments)
{
    const QString profile = writeProfile(R"({
        "folders": {"2": "run/config", "101": "run/download"},
        "workFolder": "run/user",
        "languages": [{"name": "English", "current": true}]
    })");
    // Everything after the profile is the module's, even what looks like the host's or Qt's options.
    const HostRun result = runModuleHost({"--headless", "--log", dir.filePath("host.log"), profile,
                                          "/OFFLINE", "--headless", "-style", "fusion"});
    ASSERT_EQ(result.exitCode, 0) << qPrintable(result.err);
    // argv[0] is the path it was started by, or the one an emulator's launcher handed on.
    for (const QString& line :
         {QStringLiteral("module-host: loaded %1: \"Velmora.Download module\" (Update module) 1.2.9, "
                         "context CTransDownload\n")
              .arg(QFileInfo(QStringLiteral(DM_MODULE_LIBRARY)).canonicalFilePath()),
          QStringLiteral("module-host: code 3007 with argc 5: \"%1\" \"/OFFLINE\" \"--headless\" \"-style\" "
                         "\"fusion\"\n")
              .arg(QStringLiteral(DM_MODULE_HOST_FILE)),
          QStringLiteral("module-host: registered Download (VELMORA, vmDownload) kind 1, 51 texts\n")})
        EXPECT_TRUE(result.out.contains(line)) << qPrintable(line) << " not in\n" << qPrintable(result.out);
    for (const char* folder : {"run/config", "run/download", "run/user"})
        EXPECT_TRUE(QFileInfo(dir.filePath(folder)).isDir()) << folder;
}

// Bad command lines (1), profiles (2, a proxy test's without a proxy too) and
// libraries (3) stop the host naming them, before it loads or creates anything.
TEST_F(ModuleHostProgramTest, WhatCannotBeUsedStopsTheHostNamingIt)
{
    const QString profile = writeProfile("{}");
    const QString broken = writeProfile(R"({"folders": {"2": "run/config"},)", "broken.json");
    const QString noProxy = writeProfile(R"({"folders": {"2": "run/config"}})", "plain.json");
    const QString missing = dir.filePath("missing.json");
    const QString noLibrary = dir.filePath("no/libDownloadModule.so.1");
    const QString foreign = QStringLiteral(DM_FOREIGN_LIBRARY);
    const std::tuple<QStringList, int, QStringList> cases[] = {
        {{"--headles", missing}, 1, {"unknown option --headles", "usage: module-host"}},
        {{"--headless", broken}, 2, {"profile " + broken + ": ", "at offset"}},
        {{"--headless", missing}, 2, {missing}},
        {{"--headless", "--proxy-test", "20", noProxy}, 2, {"names no proxy host"}},
        {{"--headless", "--library", noLibrary, profile}, 3, {"cannot load " + noLibrary}},
        {{"--headless", "--library", foreign, profile}, 3, {foreign + " does not export GetModuleInfo"}},
    };
    for (const auto& [arguments, exitCode, errors] : cases) {
        const HostRun result = runModuleHost(arguments);
        EXPECT_EQ(result.exitCode, exitCode) << qPrintable(arguments.join(' '));
        for (const QString& error : errors)
            EXPECT_TRUE(result.err.contains(error)) << qPrintable(error + " not in " + result.err);
        EXPECT_FALSE(result.out.contains(QStringLiteral("module-host: loaded"))) << qPrintable(result.out);
        EXPECT_FALSE(QFileInfo::exists(dir.filePath("run")));
    }
}

// The connection settings' test (3517) through the profile's proxy of each
// family, with Basic authentication, in front of an nginx.
class ProxyTestThroughEachProxy : public ModuleHostProgramTest,
                                  public ::testing::WithParamInterface<ForwardProxyFamily> {};

INSTANTIATE_TEST_SUITE_P(Proxies, ProxyTestThroughEachProxy, ::testing::ValuesIn(kForwardProxyFamilies),
                         ByFamilyName());

TEST_P(ProxyTestThroughEachProxy, GoesThroughTheProfilesProxyAndPrintsTheResult)
{
    QTemporaryDir site;
    writeText(site.filePath("index.html"), "updates\n");
    NginxServer server(site.path());
    ASSERT_TRUE(server.started()) << qPrintable(server.log());
    const std::unique_ptr<ForwardProxy> proxy = GetParam().make(server.port());
    ASSERT_TRUE(proxy->started()) << GetParam().name << " did not start:\n" << qPrintable(proxy->log());
    ASSERT_TRUE(QDir(dir.path()).mkpath("run/config"));
    writeText(dir.filePath("run/config/download.cfg"), "[Address]\npath=127.0.0.1/updates\n");
    const auto proxyTest = [&](const char* password) {
        return runModuleHost({"--headless", "--proxy-test", "20", writeProfile(QStringLiteral(R"({
            "folders": {"2": "run/config"},
            "proxy": {"state": 1, "host": "127.0.0.1", "port": %1, "user": "user", "password": "%2"}
        })").arg(proxy->port()).arg(QLatin1String(password)).toUtf8())});
    };

    // Refused credentials end the test before the server: it still saw only the first request.
    for (const auto& [password, exitCode, verdict] :
         {std::tuple{"secret", 0, "passed"}, std::tuple{"guess", 7, "failed"}}) {
        const HostRun result = proxyTest(password);
        EXPECT_EQ(result.exitCode, exitCode) << qPrintable(result.out + result.err);
        EXPECT_TRUE(result.out.contains(QStringLiteral("module-host: code 3517 to the module\n"
                                                       "module-host: Download server 127.0.0.1:80 %1\n")
                                            .arg(QLatin1String(verdict))))
            << qPrintable(result.out);
        // The test only asks; it opens no dialog.
        EXPECT_FALSE(result.out.contains(QStringLiteral("code 3066")));
        EXPECT_EQ(server.accessLog().size(), 1);
    }
}

}  // namespace
