#pragma once
// The module framework's base object: the information record, the host's
// callbacks, the log, the translation manager, named events and the host's
// readiness (3004). Every entry point is called on the host's GUI thread.
#include <QByteArray>
#include <QFont>
#include <QMap>
#include <QString>

#include "module/FontManager.h"
#include "platform/HostLink.h"
#include "protocol/HostRecords.h"

class CTranslateManager;
class Log;
class BaseLog;
namespace Velmora { class DateTime; }

class CModule {
public:
    // name goes into the information record (byte 254 always 0); moduleName is
    // the log source; contextName the translation context.
    CModule(const char* name, unsigned int first, unsigned int second, unsigned int third,
            const char* moduleName, const char* contextName);
    virtual ~CModule();
    CModule(const CModule&) = delete;
    CModule& operator=(const CModule&) = delete;

    virtual int InitializeWrap(HostCallback send, HostCallback post, void* host, void* hostParam);
    virtual int GetModuleInfoWrap(MODULE_INFO* out);
    // Handles 3004 (host ready); every other code is left to derived classes.
    virtual int ReceiveMessageWrap(void* target, unsigned int code, intptr_t param1,
                                   intptr_t param2);

    QByteArray GetModuleName() const { return moduleName_; }
    QString GetModuleNameForLog() const { return QString::fromLatin1(moduleName_); }

    CTranslateManager* GetTranslateManager() const { return translateManager_; }
    void InsertTranslate(const char* context, const char* key, const char* text) const;
    QString tr(const char* key, const char* comment = nullptr) const;
    QString tr(const QString& key, const QString& comment = QString()) const;

    Log* GetLog() { return log_; }
    const Log* GetLog() const { return log_; }

    void initFonts();
    CFontManager* getFontManager() const { return fontManager_; }
    QFont getFont(font::elementCode element) const;
    int getFontSize(int element) const;

    Velmora::DateTime* GetDateTime() const { return dateTime_; }

    // Asks the host for an object by name, key and vendor (3001); null if none.
    void* getInterface(const QString& name, const QString& key, const QString& vendor) const;

    void* CreateEvent(const QString& name);
    int EmitEvent(const QString& name, VMEvent& ev) const;
    void SubscribeEvent(const QString& name);
    int UnSubscribeEvent();

    // Makes every C time conversion of the process run at offset zero.
    static void SetTimeTz();

    HostCallback sendCallback() const { return send_; }
    HostCallback postCallback() const { return post_; }
    void* hostPointer() const { return host_; }
    intptr_t hostParam() const { return hostParam_; }
    void* registration() const { return registration_; }
    // The callback, host pointer and log, for the classes below the module.
    CHostLink hostLink() const;

protected:
    // Sends code to target through the synchronous callback; -1 without one.
    int sendToHost(void* target, unsigned int code, intptr_t param1, intptr_t param2) const;

    MODULE_INFO info_;
    HostCallback send_ = nullptr;
    HostCallback post_ = nullptr;
    void* host_ = nullptr;
    intptr_t hostParam_ = 0;
    void* registration_ = nullptr;

private:
    void handleHostReady();

    Log* log_ = nullptr;
    BaseLog* auxiliaryLog_ = nullptr;
    QByteArray moduleName_;
    Velmora::DateTime* dateTime_ = nullptr;
    CTranslateManager* translateManager_ = nullptr;
    QMap<QString, void*> events_;
    CFontManager* fontManager_ = nullptr;
};
