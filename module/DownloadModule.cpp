#include "module/DownloadModule.h"

#include <cstdlib>
#include <cstring>

#include "module/HostMessages.h"
#include "module/ModuleApi.h"
#include "module/RecordText.h"
#include "module/TextTable.h"
#include "module/TranslateManager.h"
#include "net/Base64.h"

void* pGloabalMainWindow = nullptr;

namespace {

const char kOfflineSwitch[] = "/OFFLINE";

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

CDownloadModule::~CDownloadModule() = default;

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

template <>
CDownloadModule* GetModule<CDownloadModule>()
{
    return dynamic_cast<CDownloadModule*>(::GetModule());
}
