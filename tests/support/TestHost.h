#pragma once
// A host for tests: answers the module's messages from plain fields and
// records every message with a copy of the record it carried. One instance is
// current at a time; creating one installs it with Initialize.
#include <cstdint>
#include <functional>
#include <map>
#include <vector>

#include <QByteArray>
#include <QString>
#include <QStringList>

#include "protocol/HostRecords.h"

struct RecordedMessage {
    void* target;
    unsigned int code;
    intptr_t param1;
    intptr_t param2;
    QByteArray record;  // the bytes param1 pointed at when the message arrived
};

class TestHost {
public:
    explicit TestHost(void* hostParam = nullptr);
    ~TestHost();
    TestHost(const TestHost&) = delete;
    TestHost& operator=(const TestHost&) = delete;

    static int send(void* target, unsigned int code, intptr_t param1, intptr_t param2);
    static int post(void* target, unsigned int code, intptr_t param1, intptr_t param2);

    // Delivers a message to the module through the exported ReceiveMessage.
    int deliver(unsigned int code, intptr_t param1 = 0, intptr_t param2 = 0);

    std::vector<RecordedMessage> withCode(unsigned int code) const;
    std::vector<unsigned int> codes() const;

    // What the host answers.
    std::map<unsigned int, int> resultFor;  // a code's result instead of 0
    std::map<int, QString> folders;         // 3128 by folder type (others: result 1)
    std::vector<coreLanguage> languages;    // 3116/3117
    bool provideLogSink = true;             // 3205 (3207, the date formatters, answers 1)
    mwiProxyState proxy{};                  // 3516, copied as given
    QString workFolder;                     // 3503
    intptr_t mainWindowId = -1;             // 3502
    int mainWindowObject = 0;               // its address answers 3001 "MAINWINDOW"
    void* replaceRegistration = nullptr;    // 3000: what the host leaves in the record
    unsigned int throwOnCode = 0;           // throw std::runtime_error on this code
    std::function<int(unsigned int, intptr_t, intptr_t)> extraHandler;  // for codes of later areas

    // What the host received.
    std::vector<RecordedMessage> messages;
    QStringList logLines;  // "source type level text"

    void* mainWindow() { return &mainWindowObject; }
    static void addLanguage(std::vector<coreLanguage>& list, const char* name, bool current);

private:
    int answer(void* target, unsigned int code, intptr_t param1, intptr_t param2);
    static QByteArray recordBytes(unsigned int code, intptr_t param1);
    static int logSink(const LogRecord* record);

    static TestHost* current_;
};

// A copy of a packed record's field. Test assertions take their arguments by
// reference, which a packed field cannot bind to without misalignment.
template <class T>
T value(T field)
{
    return field;
}
