#include "module/TranslateManager.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <QCoreApplication>

#include "protocol/HostMessages.h"
#include "module/Module.h"
#include "protocol/ModuleApi.h"

namespace {

template <std::size_t N>
void copyChecked(char (&field)[N], const char* text, const char* what)
{
    const char* value = text ? text : "";
    const std::size_t length = std::strlen(value);
    if (length >= N) {
        std::fprintf(stderr, "CTranslateManager: %s of %zu bytes does not fit %zu: %.40s\n",
                     what, length, N, value);
        std::abort();
    }
    std::memcpy(field, value, length + 1);
}

}  // namespace

CTranslateManager::CTranslateManager(const QString& context)
    : context_(context)
{
}

void CTranslateManager::InsertTranslate(const char* context, const char* key,
                                        const char* text) const
{
    CModule* module = ::GetModule();
    if (!module || !module->sendCallback())
        return;
    coreTranslate record;
    std::memset(&record, 0, sizeof record);
    copyChecked(record.context, context, "context");
    copyChecked(record.key, key, "key");
    copyChecked(record.text, text, "text");
    module->sendCallback()(module->hostPointer(), HostMsg::RegisterTranslation,
                           reinterpret_cast<intptr_t>(&record), 0);
}

void CTranslateManager::InsertTranslate(const char* key, const char* text) const
{
    InsertTranslate(context_.toLatin1().constData(), key, text);
}

QString CTranslateManager::Translate(const char* key, const char* comment) const
{
    return QCoreApplication::translate(context_.toLatin1().constData(), key, comment);
}
