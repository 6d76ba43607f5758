#pragma once
// The host side of the message exchange: the two callbacks the host hands to
// the module with Initialize, and an answer for every code the module sends.
//
// Codes addressed to the host (target = hostObject()) and codes addressed to
// the main window (target = the window the module found with 3001
// "MAINWINDOW") are answered by separate tables; a code sent to an object
// that does not serve it is reported and refused with 1, as a host made of
// separate objects would. Codes neither table knows are reported and answered
// with 0. Called on the GUI thread, like every host callback.
#include <cstdint>
#include <functional>

#include <QString>

#include "host/app/HostEvents.h"
#include "host/app/HostTranslator.h"
#include "host/store/ParameterStore.h"
#include "protocol/HostRecords.h"
#include "protocol/DialogRecords.h"

class HostProfile;
class HostWindow;
class QDateTime;

class HostBridge {
public:
    // Both must outlive the bridge. The bridge becomes the one the static
    // callbacks reach; there is one per process, like the module it serves.
    HostBridge(const HostProfile& profile, HostWindow* window);
    ~HostBridge();
    HostBridge(const HostBridge&) = delete;
    HostBridge& operator=(const HostBridge&) = delete;

    // The synchronous callback: answers at once and returns the answer.
    static int send(void* target, unsigned int code, intptr_t param1, intptr_t param2);
    // The asynchronous callback: answers the same message from the event loop
    // and returns 0 at once. Records passed by pointer must outlive the wait.
    static int post(void* target, unsigned int code, intptr_t param1, intptr_t param2);

    // The pointer the host passes to Initialize and expects back as target.
    void* hostObject() { return this; }
    void* mainWindowObject() const;

    // What the module told the host so far.
    bool registered() const { return registered_; }
    const coreInterfaceRecord& registration() const { return registration_; }
    int textsRegistered() const { return textsRegistered_; }
    const HostTranslator& translator() const { return translator_; }
    const HostEvents& events() const { return events_; }

    // The module's entry in the host's menu (3075): its id, 0 before the
    // module asked for one, and its text.
    int32_t menuId() const { return menuId_; }
    QString menuText() const { return menuText_; }
    bool online() const { return online_; }

    // How the bridge reaches the module: ReceiveMessage on the module object.
    using ModuleReceiver = std::function<int(unsigned int code, intptr_t param1, intptr_t param2)>;
    void setModuleReceiver(ModuleReceiver receiver) { toModule_ = std::move(receiver); }
    // Called when the module asks for a menu entry, with the entry's text and
    // the id the host gave it; the main window puts it into its menu.
    using MenuEntryAdded = std::function<void(const QString& text, int32_t id)>;
    void setMenuEntryAdded(MenuEntryAdded added) { menuEntryAdded_ = std::move(added); }

    // Messages to the module. Each returns the module's answer, -1 without a
    // module. They may run a modal box of the module before they return.
    int openDialogObject();              // 3066
    int closeDialog();                   // 3081
    int pickMenuEntry(int32_t id);       // 5511 with that id
    int setOnline(bool online);          // 3529; later 3530 answers the same
    int testProxy(mwiTesProxy* record);  // 3517: the module fills the results

private:
    int dispatch(void* target, unsigned int code, intptr_t param1, intptr_t param2);
    int answerHost(unsigned int code, intptr_t param1, intptr_t param2);
    int answerMainWindow(unsigned int code, intptr_t param1);

    // Registration and lookup
    int registerModule(coreInterfaceRecord* record);
    int findInterface(coreInterfaceRecord* record);
    int registerText(const coreTranslate* record);
    // Named events
    int subscribeEvent(const coreEventSubscribe* record);
    int unsubscribeEvents(const coreEventUnsubscribe* record);
    int createEvent(coreEventCreate* record);
    int raiseEvent(void* handle, const VMEvent* event);
    // Languages, folders, log and time formatting
    int languageCount(int32_t* count) const;
    int languageList(coreLanguage* languages) const;
    int folderByType(coreFolder* record) const;
    static int logSink(LogSink* slot);
    static int dateFormatters(coreDateTimeFormatters* formatters);
    // Main window services
    int mainWindowId(intptr_t* id) const;
    int workFolder(char16_t* buffer) const;
    int proxySettings(mwiProxyState* state) const;
    // The dialog's services
    int connectState(mwiSetStateConnect* state) const;
    int addMenuItem(coreMenuItem* entry);
    int moduleVersion(coreModuleQuery* query) const;
    int toModule(unsigned int code, intptr_t param1);

    static int formatDateTime(const QDateTime& time, const QString& format, QString* out);
    static int formatTime(long time, const QString& format, bool flag, QString* out);

    const HostProfile& profile_;
    HostWindow* window_;
    HostTranslator translator_;
    bool translatorInstalled_ = false;
    HostEvents events_;
    coreInterfaceRecord registration_{};
    bool registered_ = false;
    int textsRegistered_ = 0;
    ParameterStore parameterStore_;  // the parameter files of 3163-3170
    bool online_ = true;
    int32_t menuId_ = 0;
    QString menuText_;
    int32_t nextMenuId_ = 1001;
    ModuleReceiver toModule_;
    MenuEntryAdded menuEntryAdded_;

    static HostBridge* current_;
};
