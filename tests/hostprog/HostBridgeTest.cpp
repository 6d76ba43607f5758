// The host's answers as the real module receives them: the module objects
// linked into this test talk to the reference host's bridge as in module-host.
#include <cstring>
#include <tuple>

#include <QAction>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QMenu>
#include <QPointer>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "host/app/HostBridge.h"
#include "host/app/HostLogPrinter.h"
#include "host/app/HostProfile.h"
#include "host/app/HostWindow.h"
#include "module/DownloadModule.h"
#include "module/HostFolders.h"
#include "module/Log.h"
#include "protocol/HostMessages.h"
#include "protocol/ModuleApi.h"
#include "support/TestHost.h"
#include "transfer/support/FileHelpers.h"
#include "ui/DownloadWidget.h"

namespace {

class HostBridgeTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        ASSERT_TRUE(logPrinter.open(dir.filePath("host.log")));
        startWith(R"({"folders": {"2": "run/config", "101": "run/download"},
            "languages": [{"name": "English"}, {"name": "Deutsch", "current": true}],
            "proxy": {"state": 3, "host": "proxy.example", "port": 3128, "user": "anna", "password": "s3cr:t \u00e9"},
            "installedConfigurations": [
              {"name": "Futures", "version": "1.0.0", "modules": [{"name": "orders.so", "version": "9.9.9"}]},
              {"name": "Standard", "version": "3.3.8", "current": true,
               "modules": [{"name": "charts.so", "version": "1.4.2"}]}]
        })");
    }

    void TearDown() override
    {
        if (module())
            module()->deleteDialog();
        pGloabalMainWindow = nullptr;
        ::Initialize(nullptr, nullptr, nullptr, nullptr);
    }

    // Loads the profile and starts the module on a fresh bridge as module-host does: Initialize, 3007, 3004.
    void startWith(const QByteArray& json)
    {
        bridge.reset();
        ASSERT_TRUE(profile.parse(json, dir.path())) << qPrintable(profile.errorString());
        bridge.reset(new HostBridge(profile, &window));
        ::Initialize(&HostBridge::send, &HostBridge::post, bridge->hostObject(),
                     reinterpret_cast<void*>(intptr_t(1)));
        char program[] = "host-test";
        char* argv[] = {program, nullptr};
        ::ReceiveMessage(::GetModule(), HostMsg::CommandLine, 1, reinterpret_cast<intptr_t>(argv));
        ::ReceiveMessage(::GetModule(), HostMsg::HostReady, 0, 0);
    }

    CDownloadModule* module() const { return GetModule<CDownloadModule>(); }

    QTemporaryDir dir;
    HostLogPrinter logPrinter;
    HostProfile profile;
    HostWindow window;
    std::unique_ptr<HostBridge> bridge;
};

TEST_F(HostBridgeTest, PrintsOneLinePerLogRecord)
{
    const int before = logPrinter.linesWritten();
    module()->GetLog()->ShowLogInfo(logTypeMessage, logLevel2, QStringLiteral("first\r\nsecond %2 \u00e9"));
    module()->GetLog()->ShowLogInfo(logTypeError, logLevel4, QStringLiteral("third"));
    EXPECT_EQ(QString::fromUtf8(readFile(dir.filePath("host.log"))).split('\n', Qt::SkipEmptyParts).mid(before),
              QStringList({QStringLiteral("log: CDownloadModule type=0 level=2 first\\r\\nsecond %2 \u00e9"),
                           QStringLiteral("log: CDownloadModule type=1 level=4 third")}));
}

// Folders are the profile's, made on demand, else the module's own; a long
// path is cut to its 1024 units, NUL included. An unknown text key reads as itself.
TEST_F(HostBridgeTest, FoldersLanguageAndTexts)
{
    const QString download = dir.filePath("run/download");
    ASSERT_TRUE(QDir(download).removeRecursively());
    EXPECT_EQ(QStringList({GetPathByFolderType(module(), vfDownload), GetPathByFolderType(module(), vfConfiguration),
                           GetPathByFolderType(module(), vfConfigCopy), module()->getFontManager()->language(),
                           module()->tr("MD0039Message") + '|' + module()->tr("C0030Propes")}),
              QStringList({download, dir.filePath("run/config"), QCoreApplication::applicationDirPath(), "Deutsch",
                           QStringLiteral("Downloading\u2026|C0030Propes")}));
    EXPECT_TRUE(QDir(download).exists());

    const QString deep = QStringLiteral("/") + QString(7000, QLatin1Char('w'));
    startWith(QStringLiteral(R"({"folders": {"101": "%1"}})").arg(deep).toUtf8());
    EXPECT_EQ(GetPathByFolderType(module(), vfDownload), deep.left(1023));
}

TEST_F(HostBridgeTest, TheMainWindowFoundByNameAndTheProxy)
{
    void* found = module()->getInterface(QStringLiteral("MAINWINDOW"), QString(), QStringLiteral("VELMORA"));
    EXPECT_EQ(found, static_cast<void*>(&window));
    EXPECT_EQ(module()->getInterface(QStringLiteral("QUOTES"), QString(), QStringLiteral("VELMORA")), nullptr);
    pGloabalMainWindow = found;
    EXPECT_EQ(module()->GetMainWindow(), static_cast<QWidget*>(&window));

    // The host hands the credentials over encoded; the module's decoding must
    // give back exactly what the profile holds.
    mwiProxyState proxy;
    std::memset(&proxy, 0xAB, sizeof proxy);
    module()->GetProxyData(proxy);
    EXPECT_EQ(QStringLiteral("%1 %2:%3 %4/%5").arg(proxy.state).arg(proxy.host).arg(proxy.port).arg(proxy.user)
                  .arg(QString::fromLocal8Bit(proxy.password)),
              QStringLiteral("3 proxy.example:3128 anna/s3cr:t \u00e9"));
}

// The dialog object's questions, answered as module-host wires its window:
// the menu entry lands in the "Updates" menu, and module versions come from
// the current configuration only. One dialog object lives, the newest.
TEST_F(HostBridgeTest, TheDialogObjectGetsItsMenuEntryAndModuleVersions)
{
    bridge->setModuleReceiver([](unsigned int code, intptr_t param1, intptr_t param2) {
        return ::ReceiveMessage(::GetModule(), code, param1, param2);
    });
    bridge->setMenuEntryAdded([this](const QString& text, int32_t id) { window.setModuleEntry(text, id); });
    int closed = 0;
    window.closing = [this, &closed] {
        ++closed;
        bridge->closeDialog();
    };

    // A second dialog object asks again; the menu keeps one entry, the newest.
    EXPECT_EQ(bridge->openDialogObject(), 0);
    const int32_t firstId = bridge->menuId();
    const QPointer<CDownloadWidget> first = module()->widget();
    EXPECT_EQ(bridge->openDialogObject(), 0);
    EXPECT_NE(bridge->menuId(), firstId);
    EXPECT_TRUE(first.isNull());
    CDownloadWidget* const second = module()->widget();
    ASSERT_NE(window.moduleEntry(), nullptr);
    EXPECT_EQ(window.updatesMenu()->actions(), QList<QAction*>{window.moduleEntry()});
    EXPECT_EQ(window.moduleEntry()->text(), QStringLiteral("Updates"));

    // orders.so is known only in a configuration that is not in use.
    for (const auto& [name, answer, version] : {std::tuple{"charts.so", 0, "1.4.2"}, {"orders.so", -1, "0.0.0"}}) {
        coreModuleQuery query{};
        std::strcpy(query.name, name);
        EXPECT_EQ(bridge->send(bridge->hostObject(), HostMsg::QueryModuleVersion, intptr_t(&query), 0), answer);
        EXPECT_EQ(QString("%1.%2.%3").arg(value(query.major)).arg(value(query.minor)).arg(value(query.build)),
                  version);
    }

    // Closing the main window tells the module its dialog goes, once: the
    // module then clears the list files from the download folder.
    const QString listFile = dir.filePath("run/download/moduleDesc.txt");
    writeText(listFile, "");
    for (int i = 0; i < 2; ++i) {
        window.show();
        window.close();
        EXPECT_EQ(closed, 1);
        EXPECT_FALSE(QFile::exists(listFile));
        EXPECT_EQ(module()->widget(), second);
    }
}

}  // namespace
