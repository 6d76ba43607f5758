// Which folder a downloaded record goes to, as the host's folders answer.
#include <cstring>

#include <gtest/gtest.h>

#include "module/HostFolders.h"
#include "support/TestHost.h"
#include "update/InstallRequests.h"

namespace {

dlModule downloaded(const char* type, const QByteArray& localPath = "/dl/quotes.so")
{
    dlModule record = emptyDlModule();
    setDlText(record.name, "quotes.so");
    setDlText(record.type, type);
    setDlText(record.localPath, localPath);
    record.state = dlStateFetched;
    return record;
}

class InstallRouting : public ::testing::Test {
protected:
    InstallRouting()
    {
        for (int type : {0, 1, 3, 11, 20, 22, 50, 52, 100, 103, 150, 151, 157})
            host.folders[type] = QString("/host/folder%1").arg(type);
    }

    // The folder lookup the installation uses: the host's answer to 3128.
    std::function<QString(int)> folderOfType = [](int type) {
        return GetPathByFolderType(&TestHost::send, nullptr, VM_FOLDERS(type));
    };

    InstallRoute route(const dlModule& record)
    {
        request = UpdaterRequest{"untouched", "untouched", true};
        return routeInstallRequest(record, folderOfType, &request);
    }

    TestHost host;
    UpdaterRequest request;
};

}  // namespace

TEST_F(InstallRouting, HostFolderByTypeAndTheDefaultFolderForOtherTypes)
{
    struct Case {
        const char* type;
        const char* folder;
    };
    for (const Case& c : {Case{"157", "/host/folder157"}, Case{"12", "/host/folder150"}, Case{"0", "/host/folder0"},
                          Case{"3", "/host/folder3"}, Case{"103", "/host/folder103"}, Case{"104", "/host/folder150"},
                          Case{"151", "/host/folder150"}, Case{"12abc", "/host/folder150"}}) {
        SCOPED_TRACE(c.type);
        ASSERT_EQ(InstallAsFile, route(downloaded(c.type)));
        EXPECT_EQ(QString(c.folder), request.destination);
        EXPECT_EQ(QString("/dl/quotes.so"), request.source);
        EXPECT_FALSE(request.copyConfiguration);
    }
    // The folder is asked of the host by the type it resolves to.
    EXPECT_EQ(150, value(reinterpret_cast<const coreFolder*>(host.withCode(3128).back().record.constData())->type));
}

TEST_F(InstallRouting, ConfigurationFilesAreLeftToTheCaller)
{
    EXPECT_EQ(InstallAsConfiguration, route(downloaded("2")));
    EXPECT_EQ(QString("untouched"), request.source);
    EXPECT_TRUE(host.withCode(3128).empty());

    const UpdaterRequest copy = configCopyRequest("/cfg/Main.ini", "/host/folder151");
    EXPECT_EQ(QString("/cfg/Main.ini"), copy.source);
    EXPECT_EQ(QString("/host/folder151/Config"), copy.destination);
    EXPECT_TRUE(copy.copyConfiguration);
}

TEST_F(InstallRouting, ATypeThatIsNotANumberOrAnEmptyFolderRefusesTheRecord)
{
    for (const char* type : {"", "abc", "00", "-0", " "}) {
        SCOPED_TRACE(type);
        EXPECT_EQ(InstallRefused, route(downloaded(type)));
        EXPECT_EQ(QString("untouched"), request.source);
    }
    host.folders[157] = QString();
    EXPECT_EQ(InstallRefused, route(downloaded("157")));
}

TEST_F(InstallRouting, TheSourceIsTheWholeLocalPathField)
{
    // A path that fills the field without a terminator is read within it.
    dlModule record = downloaded("1");
    const QByteArray full = "/dl/" + QByteArray(251, 'm');
    std::memcpy(record.localPath, full.constData(), kDlTextSize);
    ASSERT_EQ(InstallAsFile, route(record));
    EXPECT_EQ(QString::fromLatin1(full), request.source);
}
