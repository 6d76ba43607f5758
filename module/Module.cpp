#include "module/Module.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

#include "module/DateTime.h"
#include "protocol/HostMessages.h"
#include "module/Log.h"
#include "storage/RecordText.h"
#include "module/TranslateManager.h"

namespace {

// A host that reports an absurd number of languages is not believed.
constexpr int32_t kMaxLanguages = 1024;
const char kFallbackLanguage[] = "English";

}  // namespace

CModule::CModule(const char* name, unsigned int first, unsigned int second, unsigned int third,
                 const char* moduleName, const char* contextName)
    : log_(new Log)
    , moduleName_(moduleName)
    , translateManager_(new CTranslateManager(QString::fromLatin1(contextName)))
{
    std::memset(&info_, 0, sizeof info_);
    std::srand(unsigned(std::time(nullptr)));
    if (name) {
        copyToField(info_.name, name);
        copyToField(info_.description, "Noname module");
        info_.name[254] = 0;
    }
    info_.numberThird = third;
    info_.numberSecond = second;
    info_.numberFirst = first;
    info_.constant8 = 8;
    copyToField(info_.contextName, QByteArray(contextName));
    info_.constant57 = 20;
}

CModule::~CModule()
{
    delete translateManager_;
    delete dateTime_;
    delete log_;
    delete auxiliaryLog_;
    delete fontManager_;
}

int CModule::InitializeWrap(HostCallback send, HostCallback post, void* host, void* hostParam)
{
    send_ = send;
    post_ = post;
    host_ = host;
    hostParam_ = reinterpret_cast<intptr_t>(hostParam);
    return 0;
}

CHostLink CModule::hostLink() const
{
    return CHostLink(send_, host_, log_);
}

int CModule::GetModuleInfoWrap(MODULE_INFO* out)
{
    if (out)
        std::memcpy(out, &info_, sizeof info_);
    return 0;
}

int CModule::ReceiveMessageWrap(void*, unsigned int code, intptr_t, intptr_t)
{
    if (code == HostMsg::HostReady)
        handleHostReady();
    return 0;
}

void CModule::handleHostReady()
{
    try {
        initFonts();
        auto* replacement = new Velmora::DateTime(send_, host_);
        delete dateTime_;
        dateTime_ = replacement;
        if (send_)
            log_->Create(GetModuleNameForLog(), send_, host_);
    } catch (...) {
        // The marker names the handler's file and line; hosts grep their logs for it.
        *log_ << logTypeError << logLevel5
              << QStringLiteral("Unknown throw in <") + GetModuleNameForLog() + QStringLiteral(">")
              << "|../Module.cpp|93" << lmSend;
        throw;
    }
}

int CModule::sendToHost(void* target, unsigned int code, intptr_t param1, intptr_t param2) const
{
    return send_ ? send_(target, code, param1, param2) : -1;
}

void CModule::InsertTranslate(const char* context, const char* key, const char* text) const
{
    translateManager_->InsertTranslate(context, key, text);
}

QString CModule::tr(const char* key, const char* comment) const
{
    return translateManager_->Translate(key, comment);
}

QString CModule::tr(const QString& key, const QString& comment) const
{
    return translateManager_->Translate(key.toLocal8Bit().constData(),
                                        comment.isNull() ? nullptr
                                                         : comment.toLocal8Bit().constData());
}

void CModule::initFonts()
{
    QString language = QString::fromLatin1(kFallbackLanguage);
    int32_t count = 0;
    if (sendToHost(host_, HostMsg::LanguageCount, reinterpret_cast<intptr_t>(&count), 0) == 0
        && count >= 0 && count <= kMaxLanguages) {
        // No languages is still asked for, with an empty array (one spare
        // zeroed entry keeps its address a real one).
        std::unique_ptr<coreLanguage[]> languages(new coreLanguage[size_t(count) + 1]());
        if (sendToHost(host_, HostMsg::LanguageList, reinterpret_cast<intptr_t>(languages.get()),
                       0) == 0) {
            for (int32_t i = 0; i < count; ++i) {
                if (languages[i].current == 1) {
                    const QByteArray name = fieldBytes(languages[i].name);
                    if (!name.isEmpty())
                        language = QString::fromLocal8Bit(name);
                    break;
                }
            }
        }
    }
    if (fontManager_ && fontManager_->language() == language)
        return;
    delete fontManager_;
    fontManager_ = new CFontManager(language);
}

QFont CModule::getFont(font::elementCode element) const
{
    return fontManager_ ? fontManager_->getFont(element) : QFont();
}

int CModule::getFontSize(int element) const
{
    return fontManager_ ? fontManager_->getFontSize(element) : QFont().pointSize();
}

void* CModule::getInterface(const QString& name, const QString& key, const QString& vendor) const
{
    if (!send_)
        return nullptr;
    void* found = nullptr;
    coreInterfaceRecord query;
    std::memset(&query, 0, sizeof query);
    copyToField(query.name, name.toLatin1());
    copyToField(query.vendor, vendor.toLatin1());
    copyToField(query.key, key.toLatin1());
    query.kind = 1;
    query.object = &found;
    send_(host_, HostMsg::FindInterface, reinterpret_cast<intptr_t>(&query), 0);
    return found;
}

void* CModule::CreateEvent(const QString& name)
{
    coreEventCreate record;
    std::memset(&record, 0, sizeof record);
    copyToField(record.name, name.toLatin1());
    sendToHost(host_, HostMsg::CreateEvent, reinterpret_cast<intptr_t>(&record), 0);
    // Copied out of the packed record: QMap::insert binds a reference, and the
    // handle is not aligned there.
    void* const handle = record.handle;
    if (!events_.contains(name))
        events_.insert(name, handle);
    return handle;
}

int CModule::EmitEvent(const QString& name, VMEvent& ev) const
{
    const auto found = events_.constFind(name);
    if (found == events_.constEnd()) {
        const QByteArray text = name.toLatin1();
        log_->ShowLogInfo(logTypeError, logLevel4,
                          QString::asprintf("Can't emit event with name \"%s\"", text.constData()));
        return 1;
    }
    copyToField(ev.name, name.toLatin1());
    ev.handle = found.value();
    sendToHost(host_, HostMsg::RaiseEvent, reinterpret_cast<intptr_t>(found.value()),
               reinterpret_cast<intptr_t>(&ev));
    return 0;
}

void CModule::SubscribeEvent(const QString& name)
{
    coreEventSubscribe record;
    std::memset(&record, 0, sizeof record);
    copyToField(record.name, name.toLatin1());
    record.registration = registration_;
    record.module = this;
    record.minusOne = -1;
    sendToHost(host_, HostMsg::SubscribeEvent, reinterpret_cast<intptr_t>(&record), 0);
}

int CModule::UnSubscribeEvent()
{
    if (!send_)
        return 0;
    coreEventUnsubscribe record{registration_, this};
    return send_(host_, HostMsg::UnsubscribeEvents, reinterpret_cast<intptr_t>(&record), 0);
}

void CModule::SetTimeTz()
{
    static char zone[] = "TZ=GST0";  // putenv keeps the pointer: the string must outlive the call
    putenv(zone);
    tzset();
}
