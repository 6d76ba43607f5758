#include "module/Log.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "protocol/HostMessages.h"

namespace {

char16_t* copyToUtf16(const QString& text)
{
    const int size = text.size();
    char16_t* copy = new char16_t[size + 1];
    std::memcpy(copy, text.utf16(), sizeof(char16_t) * size);
    copy[size] = 0;
    return copy;
}

}  // namespace

Log::Log()
    : text_(allocate(kInitialCapacity))
{
    text_[0] = 0;
}

Log::~Log()
{
    delete[] text_;
    delete[] source_;
}

char16_t* Log::allocate(unsigned int characters)
{
    if (characters > kMaxCharacters)
        throw std::bad_alloc();
    return new char16_t[characters];
}

void Log::Create(const QString&, eLogMsgType, unsigned int)
{
}

void Log::Create(char* name, HostCallback callback, void* host, eLogMsgType)
{
    Create(QString::fromLatin1(name), callback, host);
}

void Log::Create(const QString& name, HostCallback callback, void* host)
{
    delete[] source_;
    source_ = copyToUtf16(name);
    host_ = host;
    callback_ = callback;
    LogSink slot = nullptr;
    callback_(host_, HostMsg::GetLogSink, reinterpret_cast<intptr_t>(&slot), 0);
    sink_ = slot;
}

void Log::ShowLogInfo(coreLogMsgType type, coreLogMsgLevel level, const QString& text)
{
    if (type != logTypeMessage && type != logTypeError)
        return;
    *this << type << level << text << lmSend;
}

BaseLog& Log::operator<<(coreLogMsgType type)
{
    type_ = type;
    return *this;
}

BaseLog& Log::operator<<(coreLogMsgLevel level)
{
    level_ = level;
    return *this;
}

BaseLog& Log::operator<<(eLogMsgType manipulator)
{
    switch (manipulator) {
    case lmLevel0: level_ = 0; break;
    case lmLevel5: level_ = 5; break;
    case lmLevel4: level_ = 4; break;
    case lmLevel3: level_ = 3; break;
    case lmLevel2: level_ = 2; break;
    case lmSend:
        SendMessage();  // the sink's answer does not change what the stream does
        clearText();
        break;
    }
    return *this;
}

BaseLog& Log::operator<<(QChar c) { append(QString(c)); return *this; }
BaseLog& Log::operator<<(char c) { append(QString(QLatin1Char(c))); return *this; }
BaseLog& Log::operator<<(short n) { append(QString::number(n)); return *this; }
BaseLog& Log::operator<<(unsigned short n) { append(QString::number(n)); return *this; }
BaseLog& Log::operator<<(int n) { append(QString::number(n)); return *this; }
BaseLog& Log::operator<<(unsigned int n) { append(QString::number(n)); return *this; }
BaseLog& Log::operator<<(long n) { append(QString::number(n)); return *this; }
BaseLog& Log::operator<<(unsigned long n) { append(QString::number(n)); return *this; }
BaseLog& Log::operator<<(float f) { return *this << double(f); }
BaseLog& Log::operator<<(double d) { append(QString::asprintf("%g", d)); return *this; }
BaseLog& Log::operator<<(const char* text) { append(QString::fromLatin1(text)); return *this; }
BaseLog& Log::operator<<(const QString& text) { append(text); return *this; }

int Log::SendMessage()
{
    if (!sink_)
        return 1;
    LogRecord record{source_, type_, level_, text_};
    return sink_(&record);
}

QString Log::text() const
{
    return QString::fromUtf16(text_);
}

// Grows to the larger of "what is needed" and "twice what there is", so that a
// message built from many small pieces reallocates only a few times.
void Log::append(const QString& piece)
{
    char16_t* converted = copyToUtf16(piece);
    const unsigned int withTerminator = unsigned(piece.size()) + 1;
    if (length_ + withTerminator - 1 > capacity_) {
        const unsigned int newCapacity = std::max(capacity_ + withTerminator, 2 * capacity_);
        char16_t* grown = nullptr;
        try {
            grown = allocate(newCapacity);
        } catch (...) {
            delete[] converted;
            throw;
        }
        std::memcpy(grown, text_, sizeof(char16_t) * length_);
        delete[] text_;
        text_ = grown;
        capacity_ = newCapacity;
    }
    std::memcpy(text_ + length_ - 1, converted, sizeof(char16_t) * withTerminator);
    length_ += withTerminator - 1;
    delete[] converted;
}

void Log::clearText()
{
    text_[0] = 0;
    length_ = 1;
}
