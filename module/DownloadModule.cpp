#include "module/DownloadModule.h"

#include <cstdlib>
#include <cstring>

#include <QCoreApplication>

#include "protocol/HostMessages.h"
#include "protocol/ModuleApi.h"
#include "storage/RecordText.h"
#include "module/TextTable.h"
#include "module/TranslateManager.h"
#include "net/Base64.h"
#include "protocol/DialogRecords.h"
#include "ui/DownloadWidget.h"
#include "net/ServerUrl.h"
#include "net/TestProxyHttp.h"
#include "module/HostFolders.h"
#include "storage/IniFiles.h"

void* pGloabalMainWindow = nullptr;

namespace {

const char kOfflineSwitch[] = "/OFFLINE";
// The host of the default update server, tested when "download.cfg" names none.
const char kDefaultUpdateHost[] = "update.velmora.org";

// Decodes a base64 field of the host's proxy record into a plain-text field;
// text that does not decode leaves the field empty.
template <std::size_t N, std::size_t M>
void decodeCredential(char (&plain)[N], const char (&encoded)[M])
{
    std::memset(plain, 0, N);
    const QByteArray text = fieldBytes(encoded);
    char* decoded = nullptr;
    const int length = base64_decode(text.constData(), unsigned(text.size()), &decoded);
    if (length > 0)
        std::memcpy(plain, decoded, qMin<std::size_t>(std::size_t(length), N - 1));
    std::free(decoded);
}

}  // namespace

CDownloadModule::CDownloadModule(const char* name, unsigned int first, unsigned int second,
                                 unsigned int third)
    : CModule(name, first, second, third, "CDownloadModule", "CTransDownload")
{
    copyToField(info_.name, QByteArray(name));
    copyToField(info_.description, "Update module");
    info_.numberThird = third;
    info_.numberSecond = second;
    info_.numberFirst = first;
    info_.constant8 = 8;
    info_.constant57 = 57;
}

CDownloadModule::~CDownloadModule()
{
    deleteDialog();
}

int CDownloadModule::ReceiveMessageWrap(void* target, unsigned int code, intptr_t param1,
                                        intptr_t param2)
{
    CModule::ReceiveMessageWrap(target, code, param1, param2);
    switch (code) {
    case HostMsg::CommandLine:
        registerWithHost(int(param1), reinterpret_cast<char**>(param2));
        return 0;
    case HostMsg::ChangeGlobalParameters:
        return ChangeGlobalParameters(reinterpret_cast<coreChangeGlobalParameters*>(param1));
    case HostMsg::OpenDialog:
        openDialog();
        return 0;
    case HostMsg::CloseDialog:
        if (widget_)
            widget_->closeModule();
        return 0;
    case HostMsg::SetConnectState:
        setStateConnect(reinterpret_cast<mwiSetStateConnect*>(param1));
        return 0;
    case HostMsg::MenuCommand:
        if (widget_)
            widget_->pressMenu(reinterpret_cast<mm_menu_item*>(param1));
        return 0;
    case HostMsg::TestProxy:
        DoProxyConnect(reinterpret_cast<mwiTesProxy*>(param1));
        return 0;
    default:
        return 0;
    }
}

// Index 0 is the host's own program name and is never looked at. The match is
// case-insensitive and may sit inside a longer argument.
bool CDownloadModule::argumentsRequestOffline(int argumentCount, char** arguments)
{
    if (argumentCount <= 1 || !arguments)
        return false;
    for (int i = 1; i < argumentCount; ++i) {
        if (!arguments[i])
            continue;
        if (QByteArray(arguments[i]).toUpper().contains(kOfflineSwitch))
            return true;
    }
    return false;
}

void CDownloadModule::registerWithHost(int argumentCount, char** arguments)
{
    if (argumentsRequestOffline(argumentCount, arguments))
        offline_ = true;

    coreInterfaceRecord record;
    std::memset(&record, 0, sizeof record);
    copyToField(record.name, "Download");
    copyToField(record.vendor, "VELMORA");
    copyToField(record.key, "vmDownload");
    record.kind = int32_t(hostParam_);
    record.object = this;
    if (send_)
        send_(host_, HostMsg::RegisterModule, reinterpret_cast<intptr_t>(&record), 0);
    registration_ = record.object;

    translateData();
}

void CDownloadModule::openDialog()
{
    coreInterfaceRecord query = mainWindowQuery(&pGloabalMainWindow);
    if (send_)
        send_(host_, HostMsg::FindInterface, reinterpret_cast<intptr_t>(&query), 0);

    auto* fresh = new CDownloadWidget;
    if (widget_ != fresh)
        deleteDialog();
    widget_ = fresh;
    // Widgets cannot outlive the application object: the dialog goes when the
    // host's application quits, before the library's static objects are destroyed.
    if (QCoreApplication::instance())
        QObject::connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, widget_,
                         [this] { deleteDialog(); });
    widget_->startTimer();
}

void CDownloadModule::deleteDialog()
{
    CDownloadWidget* old = widget_;
    widget_ = nullptr;
    delete old;
}

void CDownloadModule::setStateConnect(mwiSetStateConnect* state)
{
    if (state && widget_)
        widget_->setStateConnect(state->state);
}

int CDownloadModule::PostMessage(void* target, unsigned int code, intptr_t param1, intptr_t param2)
{
    return post_ ? post_(target, code, param1, param2) : -1;
}

int CDownloadModule::ChangeGlobalParameters(coreChangeGlobalParameters* parameters)
{
    return parameters ? 0 : 1;
}

void CDownloadModule::translateData()
{
    for (int i = 0; i < kTextTableSize; ++i)
        GetTranslateManager()->InsertTranslate(kTextTable[i].key, kTextTable[i].text);
}

void CDownloadModule::GetProxyData(mwiProxyState& state)
{
    mwiProxyState buffer;
    std::memset(&buffer, 0, sizeof buffer);
    if (send_)
        send_(pGloabalMainWindow, HostMsg::ProxySettings, reinterpret_cast<intptr_t>(&buffer), 0);
    std::memcpy(&state, &buffer, sizeof state);
    decodeCredential(state.user, buffer.user);
    decodeCredential(state.password, buffer.password);
}

QWidget* CDownloadModule::GetMainWindow() const
{
    intptr_t windowId = -1;
    if (sendToHost(pGloabalMainWindow, HostMsg::MainWindowId,
                   reinterpret_cast<intptr_t>(&windowId), 0) != 0
        || windowId == -1)
        return nullptr;
    return QWidget::find(WId(windowId));
}

int CDownloadModule::DoProxyConnect(mwiTesProxy* test)
{
    if (!test)
        return 0;
    const QString folder = send_ ? GetPathByFolderType(this, vfConfiguration) : QString();
    const QByteArray configPath = (folder + QStringLiteral("/download.cfg")).toLocal8Bit();
    char address[1024] = {};
    {
        inifiles config(configPath.constData(), false);
        config.ReadString("Address", "path", kDefaultUpdateHost, address, int(sizeof address));
    }
    const ServerUrl server = ServerUrl::fromBytes(QByteArray(address), ServerUrl::kProxyTestAddress);

    test->resultCount = 0;
    mwiTesProxyResult& entry = test->results[0];
    std::memset(&entry, 0, sizeof entry);
    copyToField(entry.name, "Download server");
    copyToField(entry.host, server.hostName().toLocal8Bit().left(255));
    entry.port = server.port();

    const QByteArray proxyHost = fieldBytes(test->proxy.host);
    const QByteArray user = fieldBytes(test->proxy.user);
    const QByteArray password = fieldBytes(test->proxy.password);
    const QByteArray testedHost = fieldBytes(entry.host);
    const int32_t proxyType = test->proxyType;
    const int32_t proxyPort = test->proxy.port;
    CTestProxyHttp proxyTest(proxyType, testedHost.constData(), server.port(), proxyHost.constData(),
                             proxyPort, user.constData(), password.constData());
    entry.failed = proxyTest.doTest() ? 0 : 1;
    test->resultCount = 1;
    return 0;
}

template <>
CDownloadModule* GetModule<CDownloadModule>()
{
    return dynamic_cast<CDownloadModule*>(::GetModule());
}
