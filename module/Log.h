#pragma once
// The module's log stream: composes one message in a growable 16-bit buffer
// and hands it to the host's log sink as a LogRecord. Used on the GUI thread
// only; a message composed in pieces must not be interleaved with another.
#include "platform/BaseLog.h"

class Log : public BaseLog {
public:
    // Requests beyond this many characters fail as an impossible allocation.
    static constexpr unsigned int kMaxCharacters = 1065353216u;
    static constexpr unsigned int kInitialCapacity = 32;

    Log();
    ~Log() override;
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

    void Create(const QString& name, eLogMsgType type, unsigned int size) override;
    void Create(char* name, HostCallback callback, void* host, eLogMsgType type) override;
    // Asks the host for its log sink (3205). The callback must be valid.
    void Create(const QString& name, HostCallback callback, void* host) override;
    void ShowLogInfo(coreLogMsgType type, coreLogMsgLevel level, const QString& text) override;

    BaseLog& operator<<(coreLogMsgType type) override;
    BaseLog& operator<<(coreLogMsgLevel level) override;
    BaseLog& operator<<(eLogMsgType manipulator) override;
    BaseLog& operator<<(QChar c) override;
    BaseLog& operator<<(char c) override;
    BaseLog& operator<<(short n) override;
    BaseLog& operator<<(unsigned short n) override;
    BaseLog& operator<<(int n) override;
    BaseLog& operator<<(unsigned int n) override;
    BaseLog& operator<<(long n) override;
    BaseLog& operator<<(unsigned long n) override;
    BaseLog& operator<<(float f) override;
    BaseLog& operator<<(double d) override;
    BaseLog& operator<<(const char* text) override;
    BaseLog& operator<<(const QString& text) override;

    // Hands the composed message to the sink; 1 when there is no sink.
    int SendMessage();

    // Read access for tests and diagnostics.
    QString text() const;
    unsigned int length() const { return length_; }
    unsigned int capacity() const { return capacity_; }
    int type() const { return type_; }
    int level() const { return level_; }
    LogSink sink() const { return sink_; }

private:
    void append(const QString& piece);
    void clearText();
    static char16_t* allocate(unsigned int characters);

    HostCallback callback_ = nullptr;
    void* host_ = nullptr;
    char16_t* source_ = nullptr;
    int type_ = logTypeError;
    int level_ = logLevel3;
    char16_t* text_ = nullptr;
    unsigned int length_ = 1;
    unsigned int capacity_ = kInitialCapacity;
    LogSink sink_ = nullptr;
};
