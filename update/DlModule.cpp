#include "update/DlModule.h"

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <QTextCodec>

#include "update/RecordGrowth.h"

namespace {

// Sizes up to this many kB are shown in kB.
constexpr int kLargestSizeInKb = 1024;
// Codecs that write US-ASCII characters as the same bytes, one per character.
constexpr int kUtf8Mib = 106;
constexpr int kLatin1Mib = 4;

bool localEncodingKeepsAscii()
{
    const QTextCodec* codec = QTextCodec::codecForLocale();
    return codec && (codec->mibEnum() == kUtf8Mib || codec->mibEnum() == kLatin1Mib);
}

bool isAscii(const QChar* characters, int count)
{
    for (int i = 0; i < count; ++i) {
        if (characters[i].unicode() >= 0x80)
            return false;
    }
    return true;
}

// The decimal digits of number followed by unit, made in one buffer: every
// module list line has its size text made here.
QByteArray numberWithUnit(int number, const char* unit)
{
    char text[32];
    char* const digitsEnd = std::to_chars(text, text + sizeof text, number).ptr;
    const std::size_t unitLength = std::strlen(unit);
    std::memcpy(digitsEnd, unit, unitLength);
    return QByteArray(text, int(digitsEnd - text) + int(unitLength));
}

}  // namespace

dlModule emptyDlModule()
{
    dlModule module;
    clearDlModule(module);
    return module;
}

void clearDlModule(dlModule& module)
{
    std::memset(&module, 0, sizeof module);
    module.state = dlStateParsed;
}

void setDlText(char (&field)[kDlTextSize], const QByteArray& text)
{
    const std::size_t length = qMin<std::size_t>(kDlTextSize - 1, std::size_t(text.size()));
    std::memcpy(field, text.constData(), length);
    std::memset(field + length, 0, kDlTextSize - length);
}

void setDlLocalText(char (&field)[kDlTextSize], const QStringRef& text)
{
    // List lines are nearly always plain ASCII, and the locale's encoding
    // nearly always UTF-8: then the characters kept are the bytes, and the
    // encoder's buffer per field, a few for every line of a long list, is
    // not needed. Characters beyond the ones kept cannot change those bytes.
    const int kept = qMin(int(kDlTextSize) - 1, text.size());
    const QChar* const characters = text.unicode();
    if (!isAscii(characters, kept) || !localEncodingKeepsAscii()) {
        setDlText(field, text.toLocal8Bit());
        return;
    }
    for (int i = 0; i < kept; ++i)
        field[i] = char(characters[i].unicode());
    std::memset(field + kept, 0, kDlTextSize - std::size_t(kept));
}

QByteArray dlText(const char (&field)[kDlTextSize])
{
    return QByteArray(field, int(qstrnlen(field, kDlTextSize)));
}

QByteArray dlTextInPlace(const char (&field)[kDlTextSize])
{
    return QByteArray::fromRawData(field, int(qstrnlen(field, kDlTextSize)));
}

QByteArray dlIdentity(const dlModule& module)
{
    return dlText(module.name) + '\0' + dlText(module.version) + '\0' + dlText(module.versionExtra);
}

QString dlLocalText(const char (&field)[kDlTextSize])
{
    return QString::fromLocal8Bit(field, int(qstrnlen(field, kDlTextSize)));
}

QByteArray dlSizeText(int sizeKb)
{
    if (sizeKb <= kLargestSizeInKb)
        return numberWithUnit(sizeKb, " kb");
    // "%0.1f" of a whole number of megabytes is that number and ".0"; written
    // out directly it costs no printf per list line and no locale can turn
    // the point into a comma.
    return numberWithUnit(sizeKb >> 10, ".0 Mb");
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
    const int32_t present = count < 0 ? 0 : count;
    dlModule* block = withRoomForOneMore(modules, present);
    if (!block)
        return;
    modules = block;
    modules[present] = module;
    count = present + 1;
}

void dlListModule::clear()
{
    std::free(modules);
    modules = nullptr;
    count = 0;
}
