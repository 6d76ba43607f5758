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

#include "host/app/HostEvents.h"
#include "host/app/HostTranslator.h"
#include "host/store/ParameterStore.h"
#include "module/HostRecords.h"

class HostProfile;
class HostWindow;
class QDateTime;
class QString;

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

    static HostBridge* current_;
};
