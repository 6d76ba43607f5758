#include "host/app/HostBridge.h"

#include <cstdlib>
#include <cstring>

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>

#include "host/app/HostConsole.h"
#include "host/app/HostLogPrinter.h"
#include "host/app/HostProfile.h"
#include "host/app/HostWindow.h"
#include "protocol/HostMessages.h"
#include "storage/RecordText.h"
#include "net/Base64.h"

HostBridge* HostBridge::current_ = nullptr;

namespace {

constexpr std::size_t kWorkFolderUnits = 12288 / sizeof(char16_t);

// Writes text into a 16-bit buffer of units characters, cut so that the
// terminating NUL always fits.
void copyToUtf16(char16_t* buffer, std::size_t units, const QString& text)
{
    const std::size_t length = qMin<std::size_t>(units - 1, std::size_t(text.size()));
    std::memcpy(buffer, text.utf16(), length * sizeof(char16_t));
    buffer[length] = 0;
}

// Credentials travel base64-encoded between host and module, so a host
// encodes what the user typed before handing it over.
template <std::size_t N>
void copyEncoded(char (&field)[N], const QString& plain)
{
    const QByteArray bytes = plain.toLocal8Bit();
    char* encoded = nullptr;
    const int length = base64_encode(bytes.constData(), unsigned(bytes.size()), &encoded);
    copyToField(field, length > 0 ? QByteArray(encoded, length) : QByteArray());
    std::free(encoded);
}

QString pointerText(const void* pointer)
{
    return QStringLiteral("0x%1").arg(quintptr(pointer), 0, 16);
}

}  // namespace

HostBridge::HostBridge(const HostProfile& profile, HostWindow* window)
    : profile_(profile)
    , window_(window)
    , online_(profile.online())
{
    current_ = this;
}

HostBridge::~HostBridge()
{
    if (translatorInstalled_)
        QCoreApplication::removeTranslator(&translator_);
    if (current_ == this)
        current_ = nullptr;
}

void* HostBridge::mainWindowObject() const
{
    return static_cast<void*>(window_);
}

int HostBridge::send(void* target, unsigned int code, intptr_t param1, intptr_t param2)
{
    return current_ ? current_->dispatch(target, code, param1, param2) : -1;
}

int HostBridge::post(void* target, unsigned int code, intptr_t param1, intptr_t param2)
{
    if (!current_)
        return -1;
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [target, code, param1, param2] { send(target, code, param1, param2); },
        Qt::QueuedConnection);
    return 0;
}

int HostBridge::dispatch(void* target, unsigned int code, intptr_t param1, intptr_t param2)
{
    if (target == hostObject())
        return answerHost(code, param1, param2);
    if (target && target == mainWindowObject())
        return answerMainWindow(code, param1);
    printHostError(QStringLiteral("code %1 sent to %2, which is neither the host nor its main "
                                  "window; refused")
                       .arg(code)
                       .arg(pointerText(target)));
    return 1;
}

int HostBridge::answerHost(unsigned int code, intptr_t param1, intptr_t param2)
{
    // The only code without a record: this host draws its menus itself.
    if (code == HostMsg::UpdateMenu)
        return 0;
    if (!param1) {
        // Every code served here carries its record or slot in param1.
        printHostError(QStringLiteral("code %1 without its record; refused").arg(code));
        return 1;
    }
    switch (code) {
    case HostMsg::RegisterModule:
        return registerModule(reinterpret_cast<coreInterfaceRecord*>(param1));
    case HostMsg::FindInterface:
        return findInterface(reinterpret_cast<coreInterfaceRecord*>(param1));
    case HostMsg::RegisterTranslation:
        return registerText(reinterpret_cast<const coreTranslate*>(param1));
    case HostMsg::SubscribeEvent:
        return subscribeEvent(reinterpret_cast<const coreEventSubscribe*>(param1));
    case HostMsg::UnsubscribeEvents:
        return unsubscribeEvents(reinterpret_cast<const coreEventUnsubscribe*>(param1));
    case HostMsg::CreateEvent:
        return createEvent(reinterpret_cast<coreEventCreate*>(param1));
    case HostMsg::RaiseEvent:
        return raiseEvent(reinterpret_cast<void*>(param1), reinterpret_cast<VMEvent*>(param2));
    case HostMsg::LanguageCount:
        return languageCount(reinterpret_cast<int32_t*>(param1));
    case HostMsg::LanguageList:
        return languageList(reinterpret_cast<coreLanguage*>(param1));
    case HostMsg::FolderByType:
        return folderByType(reinterpret_cast<coreFolder*>(param1));
    case HostMsg::GetLogSink:
        return logSink(reinterpret_cast<LogSink*>(param1));
    case HostMsg::GetDateFormatters:
        return dateFormatters(reinterpret_cast<coreDateTimeFormatters*>(param1));
    case HostMsg::QueryConnectState:
        return connectState(reinterpret_cast<mwiSetStateConnect*>(param1));
    case HostMsg::AddMenuItem:
        return addMenuItem(reinterpret_cast<coreMenuItem*>(param1));
    case HostMsg::ReleaseInterface:
        // Lookups hand out plain pointers that need no release.
        return 0;
    case HostMsg::QueryModuleVersion:
        return moduleVersion(reinterpret_cast<coreModuleQuery*>(param1));
    case HostMsg::MainWindowId:
    case HostMsg::WorkFolder:
    case HostMsg::ProxySettings:
        // Sent to the wrong object: the module skipped its 3001 "MAINWINDOW".
        printHostError(QStringLiteral("code %1 belongs to the main window, not the host; refused")
                           .arg(code));
        return 1;
    default:
        if (profile_.installedProducts().answers(code))
            return profile_.installedProducts().answer(code, param1);
        if (ParameterStore::handles(code))
            return parameterStore_.handleMessage(code, param1, param2);
        printHostLine(QStringLiteral("unhandled code %1").arg(code));
        return 0;
    }
}

int HostBridge::answerMainWindow(unsigned int code, intptr_t param1)
{
    if (!param1) {
        printHostError(QStringLiteral("code %1 without its record; refused").arg(code));
        return 1;
    }
    switch (code) {
    case HostMsg::MainWindowId:
        return mainWindowId(reinterpret_cast<intptr_t*>(param1));
    case HostMsg::WorkFolder:
        return workFolder(reinterpret_cast<char16_t*>(param1));
    case HostMsg::ProxySettings:
        return proxySettings(reinterpret_cast<mwiProxyState*>(param1));
    default:
        printHostLine(QStringLiteral("unhandled code %1 (main window)").arg(code));
        return 0;
    }
}

// The object pointer stays as the module sent it: this host has no wrapper
// object of its own to hand back for the registration.
int HostBridge::registerModule(coreInterfaceRecord* record)
{
    registration_ = *record;
    registered_ = true;
    return 0;
}

int HostBridge::findInterface(coreInterfaceRecord* record)
{
    void** slot = static_cast<void**>(record->object);
    if (!slot)
        return 1;
    if (fieldBytes(record->name) == "MAINWINDOW") {
        *slot = mainWindowObject();
        return 0;
    }
    *slot = nullptr;
    return 1;
}

int HostBridge::registerText(const coreTranslate* record)
{
    translator_.insert(fieldBytes(record->context), fieldBytes(record->key),
                       fieldBytes(record->text));
    ++textsRegistered_;
    // Installed once it has a text: Qt announces a language change only for a
    // translator that is not empty.
    if (!translatorInstalled_)
        translatorInstalled_ = QCoreApplication::installTranslator(&translator_);
    return 0;
}

int HostBridge::subscribeEvent(const coreEventSubscribe* record)
{
    events_.subscribe(fieldBytes(record->name), record->registration, record->module);
    return 0;
}

int HostBridge::unsubscribeEvents(const coreEventUnsubscribe* record)
{
    events_.unsubscribe(record->registration, record->module);
    return 0;
}

int HostBridge::createEvent(coreEventCreate* record)
{
    record->handle = events_.create(fieldBytes(record->name));
    return 0;
}

int HostBridge::raiseEvent(void* handle, const VMEvent*)
{
    if (!events_.raise(handle)) {
        printHostError(QStringLiteral("code 3113 with unknown event handle %1; refused")
                           .arg(pointerText(handle)));
        return 1;
    }
    printHostLine(QStringLiteral("event %1 raised")
                      .arg(QString::fromLatin1(events_.nameOf(handle))));
    return 0;
}

int HostBridge::languageCount(int32_t* count) const
{
    *count = int32_t(profile_.languages().size());
    return 0;
}

// Fills as many records as 3116 announced; the module allocated that many.
int HostBridge::languageList(coreLanguage* languages) const
{
    const QVector<HostLanguage>& list = profile_.languages();
    for (int i = 0; i < list.size(); ++i) {
        std::memset(&languages[i], 0, sizeof languages[i]);
        copyToField(languages[i].name, list[i].name.toLocal8Bit());
        languages[i].current = list[i].current ? 1 : 0;
    }
    return 0;
}

int HostBridge::folderByType(coreFolder* record) const
{
    const QString path = profile_.folder(record->type);
    if (path.isNull())
        return 1;
    // A terminal's folders exist; one removed while the host runs is made again.
    if (!QDir().mkpath(path))
        printHostError(QStringLiteral("cannot create folder %1").arg(path));
    copyToUtf16(record->path, sizeof record->path / sizeof record->path[0], path);
    return 0;
}

int HostBridge::logSink(LogSink* slot)
{
    *slot = &HostLogPrinter::sink;
    return 0;
}

int HostBridge::dateFormatters(coreDateTimeFormatters* formatters)
{
    formatters->formatDateTime = &HostBridge::formatDateTime;
    formatters->formatTime = &HostBridge::formatTime;
    return 0;
}

int HostBridge::mainWindowId(intptr_t* id) const
{
    *id = intptr_t(window_->winId());
    return 0;
}

int HostBridge::workFolder(char16_t* buffer) const
{
    if (profile_.workFolder().isEmpty())
        return 1;
    copyToUtf16(buffer, kWorkFolderUnits, profile_.workFolder());
    return 0;
}

int HostBridge::proxySettings(mwiProxyState* state) const
{
    const HostProxy& proxy = profile_.proxy();
    std::memset(state, 0, sizeof *state);
    state->state = proxy.state;
    copyToField(state->host, proxy.host.toLocal8Bit());
    state->port = proxy.port;
    copyEncoded(state->user, proxy.user);
    copyEncoded(state->password, proxy.password);
    return 0;
}

int HostBridge::connectState(mwiSetStateConnect* state) const
{
    state->state = online_ ? 1 : 0;
    return 0;
}

// One entry per request, each with a new id: a module that opens its dialog
// object again gets a fresh entry, and the menu keeps only the latest.
int HostBridge::addMenuItem(coreMenuItem* entry)
{
    menuId_ = nextMenuId_++;
    menuText_ = QString::fromLocal8Bit(fieldBytes(entry->text));
    entry->id = menuId_;
    if (menuEntryAdded_)
        menuEntryAdded_(menuText_, menuId_);
    return 0;
}

int HostBridge::moduleVersion(coreModuleQuery* query) const
{
    const HostInstalledModule* module =
        profile_.installedProducts().currentModule(QString::fromLocal8Bit(fieldBytes(query->name)));
    if (!module)
        return -1;
    query->major = module->major;
    query->minor = module->minor;
    query->build = module->build;
    return 0;
}

int HostBridge::toModule(unsigned int code, intptr_t param1)
{
    if (!toModule_)
        return -1;
    printHostLine(QStringLiteral("code %1 to the module").arg(code));
    return toModule_(code, param1, 0);
}

int HostBridge::openDialogObject()
{
    return toModule(HostMsg::OpenDialog, 0);
}

int HostBridge::closeDialog()
{
    return toModule(HostMsg::CloseDialog, 0);
}

int HostBridge::pickMenuEntry(int32_t id)
{
    mm_menu_item item;
    std::memset(&item, 0, sizeof item);
    item.id = id;
    copyToField(item.text, menuText_.toLocal8Bit());
    return toModule(HostMsg::MenuCommand, reinterpret_cast<intptr_t>(&item));
}

int HostBridge::setOnline(bool online)
{
    online_ = online;
    mwiSetStateConnect state{online ? 1 : 0};
    return toModule(HostMsg::SetConnectState, reinterpret_cast<intptr_t>(&state));
}

int HostBridge::testProxy(mwiTesProxy* record)
{
    return toModule(HostMsg::TestProxy, reinterpret_cast<intptr_t>(record));
}

int HostBridge::formatDateTime(const QDateTime& time, const QString& format, QString* out)
{
    if (!out)
        return 1;
    *out = time.toString(format);
    return 0;
}

// Times arrive as seconds since the epoch and are shown in UTC, the zone the
// module runs its own C time conversions in. The flag has no meaning here.
int HostBridge::formatTime(long time, const QString& format, bool, QString* out)
{
    if (!out)
        return 1;
    *out = QDateTime::fromSecsSinceEpoch(qint64(time), Qt::UTC).toString(format);
    return 0;
}
