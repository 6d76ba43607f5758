// The download state through module-host's own message dispatcher: written
// with one host, read back field for field by a new host that has only the
// file on disk, as after a restart of the terminal.
#include <memory>

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "DlRecords.h"
#include "host/app/HostBridge.h"
#include "host/app/HostLogPrinter.h"
#include "host/app/HostProfile.h"
#include "host/app/HostWindow.h"
#include "module/ModuleApi.h"
#include "update/SaveParamDownload.h"

namespace {

class HostRestartTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        ASSERT_TRUE(logPrinter.open(dir.filePath(QStringLiteral("host.log"))));
        ASSERT_TRUE(profile.parse("{}", dir.path())) << qPrintable(profile.errorString());
    }

    void TearDown() override { ::Initialize(nullptr, nullptr, nullptr, nullptr); }

    void startHost()
    {
        ::Initialize(nullptr, nullptr, nullptr, nullptr);
        bridge.reset();
        bridge = std::make_unique<HostBridge>(profile, &window);
        ::Initialize(&HostBridge::send, &HostBridge::post, bridge->hostObject(), nullptr);
    }

    QTemporaryDir dir;
    HostLogPrinter logPrinter;
    HostProfile profile;
    HostWindow window;
    std::unique_ptr<HostBridge> bridge;
};

}  // namespace

TEST_F(HostRestartTest, DownloadStateSurvivesARestartOfTheHost)
{
    const QString folder = dir.filePath(QStringLiteral("config"));
    const dlModule first = makeModule("terminal.so", "3.3.8", "1", dlStateToFetch);
    const dlModule second = makeModule("charts.so", "3.3.8", "1", dlStateFetched);
    startHost();
    {
        CSaveParamDownload saver(folder);
        saver.saveStartParam(true, false);
        saver.createLastDownload(2);
        saver.saveLastDownloadModule(first, 1);
        saver.saveLastDownloadModule(second, 1);
        saver.changeStateLastDownloadModule(second, 3);
    }

    startHost();
    CSaveParamDownload saver(folder);
    bool autoDownload = false;
    bool showWindow = true;
    saver.getStartParam(autoDownload, showWindow);
    EXPECT_TRUE(autoDownload);
    EXPECT_FALSE(showWindow);
    EXPECT_EQ(saver.getCountLastDownloadModule(), 2);
    const dlModule* expected[] = {&first, &second};
    const int states[] = {1, 3};
    for (int i = 0; i < 2; ++i) {
        dlModule out = emptyDlModule();
        ASSERT_EQ(saver.getLastDownloadModule(states[i], 1, &out), 1);
        EXPECT_TRUE(sameRecord(out, *expected[i])) << dlText(out.name).constData();
    }

    QFile file(folder + QStringLiteral("/download.rdd"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray xml = file.readAll();
    EXPECT_TRUE(xml.contains("<param name=\"Date\" value=\"  charts.so &quot;title&quot;  \"/>"))
        << xml.constData();
}
