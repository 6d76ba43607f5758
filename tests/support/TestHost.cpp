#include "support/TestHost.h"

#include <cstring>
#include <stdexcept>

#include "protocol/DialogRecords.h"
#include "protocol/HostMessages.h"
#include "protocol/ModuleApi.h"
#include "storage/RecordText.h"

TestHost* TestHost::current_ = nullptr;

TestHost::TestHost(void* hostParam)
{
    current_ = this;
    ::Initialize(&TestHost::send, &TestHost::post, this, hostParam);
}

TestHost::~TestHost()
{
    if (current_ == this) {
        ::Initialize(nullptr, nullptr, nullptr, nullptr);
        current_ = nullptr;
    }
}

int TestHost::deliver(unsigned int code, intptr_t param1, intptr_t param2)
{
    return ::ReceiveMessage(this, code, param1, param2);
}

std::vector<RecordedMessage> TestHost::withCode(unsigned int code) const
{
    std::vector<RecordedMessage> found;
    for (const RecordedMessage& message : messages)
        if (message.code == code)
            found.push_back(message);
    return found;
}

std::vector<unsigned int> TestHost::codes() const
{
    std::vector<unsigned int> result;
    for (const RecordedMessage& message : messages)
        result.push_back(message.code);
    return result;
}

void TestHost::addLanguage(std::vector<coreLanguage>& list, const char* name, bool current)
{
    coreLanguage language{};
    copyToField(language.name, name);
    language.current = current ? 1 : 0;
    list.push_back(language);
}

QByteArray TestHost::recordBytes(unsigned int code, intptr_t param1)
{
    static const std::map<unsigned int, int> sizes = {
        {HostMsg::RegisterModule, sizeof(coreInterfaceRecord)}, {HostMsg::FindInterface, sizeof(coreInterfaceRecord)},
        {HostMsg::RegisterTranslation, sizeof(coreTranslate)},  {HostMsg::FolderByType, sizeof(coreFolder)},
        {HostMsg::ProxySettings, sizeof(mwiProxyState)}, {HostMsg::ConfigFileArrived, sizeof(coreConfigFileArrived)}};
    const auto size = sizes.find(code);
    const char* record = reinterpret_cast<const char*>(param1);
    return record && size != sizes.end() ? QByteArray(record, size->second) : QByteArray();
}

int TestHost::send(void* target, unsigned int code, intptr_t param1, intptr_t param2)
{
    TestHost* host = current_;
    if (!host)
        return -1;
    host->messages.push_back({target, code, param1, param2, recordBytes(code, param1)});
    if (host->throwOnCode == code)
        throw std::runtime_error("test host refuses this code");
    const int answered = host->answer(target, code, param1, param2);
    const auto forced = host->resultFor.find(code);
    return forced != host->resultFor.end() ? forced->second : answered;
}

// The module never posts; a post is refused.
int TestHost::post(void*, unsigned int, intptr_t, intptr_t)
{
    return -1;
}

int TestHost::answer(void*, unsigned int code, intptr_t param1, intptr_t param2)
{
    switch (code) {
    case HostMsg::RegisterModule:
        if (replaceRegistration)
            reinterpret_cast<coreInterfaceRecord*>(param1)->object = replaceRegistration;
        return 0;
    case HostMsg::FindInterface:
        if (auto* record = reinterpret_cast<coreInterfaceRecord*>(param1); fieldBytes(record->name) == "MAINWINDOW")
            *static_cast<void**>(record->object) = mainWindow();
        return 0;
    case HostMsg::LanguageCount:
        *reinterpret_cast<int32_t*>(param1) = int32_t(languages.size());
        return 0;
    case HostMsg::LanguageList:
        if (!languages.empty())
            std::memcpy(reinterpret_cast<void*>(param1), languages.data(),
                        languages.size() * sizeof(coreLanguage));
        return 0;
    case HostMsg::FolderByType: {
        auto* record = reinterpret_cast<coreFolder*>(param1);
        const auto found = folders.find(int(record->type));
        if (found == folders.end())
            return 1;
        const QString& path = found->second;
        const int units = qMin(path.size(), 1023);
        std::memcpy(record->path, path.utf16(), sizeof(char16_t) * size_t(units));
        record->path[units] = 0;
        return 0;
    }
    case HostMsg::GetLogSink:
        if (provideLogSink)
            *reinterpret_cast<LogSink*>(param1) = &TestHost::logSink;
        return 0;
    case HostMsg::GetDateFormatters:
        return 1;
    case HostMsg::MainWindowId:
        *reinterpret_cast<intptr_t*>(param1) = mainWindowId;
        return 0;
    case HostMsg::WorkFolder:
        std::memcpy(reinterpret_cast<void*>(param1), workFolder.utf16(), sizeof(char16_t) * size_t(workFolder.size()));
        return 0;
    case HostMsg::ProxySettings:
        std::memcpy(reinterpret_cast<void*>(param1), &proxy, sizeof proxy);
        return 0;
    default:
        return extraHandler ? extraHandler(code, param1, param2) : 0;
    }
}

int TestHost::logSink(const LogRecord* record)
{
    if (!current_)
        return 1;
    current_->logLines << QStringLiteral("%1 %2 %3 %4").arg(QString::fromUtf16(record->source)).arg(record->type)
                              .arg(record->level).arg(QString::fromUtf16(record->text));
    return 0;
}
