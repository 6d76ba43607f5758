#pragma once
// Loads a module library by path and looks up its four exports. The library
// stays loaded until unload() or destruction; unloading runs the module's
// static destructors, so the host does it while its application object,
// windows and callbacks still exist.
#include <QString>

#include "protocol/ModuleApi.h"

class ModuleLoader {
public:
    ModuleLoader() = default;
    ~ModuleLoader();
    ModuleLoader(const ModuleLoader&) = delete;
    ModuleLoader& operator=(const ModuleLoader&) = delete;

    // false with errorString() naming the path and the loader's reason, or the
    // export that is missing. Nothing stays loaded after a failure.
    bool load(const QString& path);
    void unload();
    bool isLoaded() const { return handle_ != nullptr; }
    QString path() const { return path_; }
    QString errorString() const { return error_; }

    // Where the host looks when no --library is given: the build folder
    // above the program's own folder (build/host/module-host next to
    // build/libDownloadModule.so.1), then the program's folder itself. The
    // first that exists; the first candidate when none does, so the error
    // names a real expectation.
    static QString defaultLibraryPath(const QString& programFolder);

    GetModuleInfoFn getModuleInfo = nullptr;
    InitializeFn initialize = nullptr;
    GetModuleFn getModule = nullptr;
    ReceiveMessageFn receiveMessage = nullptr;

private:
    bool resolve(const char* name, void*& slot);

    void* handle_ = nullptr;
    QString path_;
    QString error_;
};
