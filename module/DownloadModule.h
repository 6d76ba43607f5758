#pragma once
// The library's one module object: registration with the host, the host's
// command line, proxy settings and main window. Called on the GUI thread.
#include <QWidget>

#include "module/Module.h"

// The host's main window object, filled by the host through 3001.
extern void* pGloabalMainWindow;

struct coreChangeGlobalParameters;
struct mm_menu_item;
class CDownloadWidget;

class CDownloadModule : public CModule {
public:
    CDownloadModule(const char* name, unsigned int first, unsigned int second, unsigned int third);
    ~CDownloadModule() override;

    int ReceiveMessageWrap(void* target, unsigned int code, intptr_t param1,
                           intptr_t param2) override;

    // Forwards to the host's asynchronous callback; -1 without one.
    int PostMessage(void* target, unsigned int code, intptr_t param1, intptr_t param2);
    int ChangeGlobalParameters(coreChangeGlobalParameters* parameters);
    // Registers every UI text with the host, in table order.
    void translateData();
    // The host's proxy settings with user name and password decoded.
    void GetProxyData(mwiProxyState& state);
    QWidget* GetMainWindow() const;
    // Tests the host's proxy against the update server (3517); fills exactly
    // one result entry and always returns 0. Blocks, pumping events; the
    // record's proxy type is handed to the test as its time limit in seconds.
    int DoProxyConnect(mwiTesProxy* test);

    bool isOffline() const { return offline_; }
    // Passes the host's connection state to the open dialog.
    void setStateConnect(mwiSetStateConnect* state);
    // The update dialog object, null until the host opens it (3066).
    CDownloadWidget* widget() const { return widget_; }
    // Deletes the dialog object and its window, if any.
    void deleteDialog();

private:
    void registerWithHost(int argumentCount, char** arguments);
    static bool argumentsRequestOffline(int argumentCount, char** arguments);
    void openDialog();

    CDownloadWidget* widget_ = nullptr;
    bool offline_ = false;
};

// The module object with its real type; null if it is not a CDownloadModule.
template <class T>
T* GetModule();

template <>
CDownloadModule* GetModule<CDownloadModule>();
