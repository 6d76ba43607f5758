#include "host/app/ModuleLoader.h"

#include <dlfcn.h>

#include <QDir>
#include <QFileInfo>

namespace {

const char kLibraryName[] = "libDownloadModule.so.1";

QString lastLoaderError()
{
    const char* reason = dlerror();
    return reason ? QString::fromLocal8Bit(reason) : QStringLiteral("unknown reason");
}

}  // namespace

ModuleLoader::~ModuleLoader()
{
    unload();
}

bool ModuleLoader::load(const QString& path)
{
    unload();
    path_ = path;
    error_.clear();
    dlerror();  // drop a stale message so the one reported is this call's
    // RTLD_NOW: a library with an unresolved symbol fails here, with a
    // message naming it, rather than in the middle of a message exchange.
    handle_ = dlopen(QFile::encodeName(path).constData(), RTLD_NOW | RTLD_LOCAL);
    if (!handle_) {
        error_ = QStringLiteral("cannot load %1: %2").arg(path, lastLoaderError());
        return false;
    }
    void* info = nullptr;
    void* initializeFn = nullptr;
    void* moduleFn = nullptr;
    void* receiveFn = nullptr;
    if (!resolve("GetModuleInfo", info) || !resolve("Initialize", initializeFn)
        || !resolve("GetModule", moduleFn) || !resolve("ReceiveMessage", receiveFn)) {
        unload();
        return false;
    }
    getModuleInfo = reinterpret_cast<GetModuleInfoFn>(info);
    initialize = reinterpret_cast<InitializeFn>(initializeFn);
    getModule = reinterpret_cast<GetModuleFn>(moduleFn);
    receiveMessage = reinterpret_cast<ReceiveMessageFn>(receiveFn);
    return true;
}

bool ModuleLoader::resolve(const char* name, void*& slot)
{
    dlerror();
    slot = dlsym(handle_, name);
    if (slot)
        return true;
    error_ = QStringLiteral("%1 does not export %2: %3")
                 .arg(path_, QString::fromLatin1(name), lastLoaderError());
    return false;
}

void ModuleLoader::unload()
{
    getModuleInfo = nullptr;
    initialize = nullptr;
    getModule = nullptr;
    receiveMessage = nullptr;
    if (handle_) {
        dlclose(handle_);
        handle_ = nullptr;
    }
}

QString ModuleLoader::defaultLibraryPath(const QString& programFolder)
{
    const QDir folder(programFolder);
    const QString candidates[] = {
        QDir::cleanPath(folder.absoluteFilePath(QStringLiteral("../") + QLatin1String(kLibraryName))),
        QDir::cleanPath(folder.absoluteFilePath(QString::fromLatin1(kLibraryName))),
    };
    for (const QString& candidate : candidates) {
        if (QFileInfo::exists(candidate))
            return candidate;
    }
    return candidates[0];
}
