#include "update/DlModule.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include <QString>

namespace {

// Sizes up to this many kB are shown in kB.
constexpr int kLargestSizeInKb = 1024;

}  // namespace

dlModule emptyDlModule()
{
    dlModule module;
    std::memset(&module, 0, sizeof module);
    module.state = dlStateParsed;
    return module;
}

void setDlText(char (&field)[kDlTextSize], const QByteArray& text)
{
    const std::size_t length = qMin<std::size_t>(kDlTextSize - 1, std::size_t(text.size()));
    std::memcpy(field, text.constData(), length);
    std::memset(field + length, 0, kDlTextSize - length);
}

QByteArray dlText(const char (&field)[kDlTextSize])
{
    return QByteArray(field, int(qstrnlen(field, kDlTextSize)));
}

QByteArray dlSizeText(int sizeKb)
{
    if (sizeKb <= kLargestSizeInKb)
        return QByteArray::number(sizeKb) + " kb";
    // QString::asprintf formats numbers in the C locale whatever the process
    // locale is, so the decimal separator is always a point.
    return QString::asprintf("%0.1f Mb", double(sizeKb >> 10)).toLatin1();
}

dlListModule::~dlListModule()
{
    std::free(modules);
}

dlListModule::dlListModule(dlListModule&& other) noexcept
    : count(std::exchange(other.count, 0))
    , modules(std::exchange(other.modules, nullptr))
{
}

dlListModule& dlListModule::operator=(dlListModule&& other) noexcept
{
    if (this != &other) {
        std::free(modules);
        count = std::exchange(other.count, 0);
        modules = std::exchange(other.modules, nullptr);
    }
    return *this;
}

void dlListModule::append(const dlModule& module)
{
    const int32_t grown = (count < 0 ? 0 : count) + 1;
    void* block = std::realloc(modules, std::size_t(grown) * sizeof(dlModule));
    if (!block)
        return;
    modules = static_cast<dlModule*>(block);
    count = grown;
    modules[count - 1] = module;
}

void dlListModule::clear()
{
    std::free(modules);
    modules = nullptr;
    count = 0;
}
