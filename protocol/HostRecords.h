#pragma once
// Records that the module framework exchanges with the host.
//
// Every record is packed and little-endian; text fields are fixed-size,
// NUL-terminated 8-bit strings and folder paths are 16-bit character buffers.
// This header is compiled with -m32 by the test suite, so it must not depend
// on Qt or on anything that is not available to a bare i386 compiler.
#include <cstdint>

#include "protocol/RecordLayout.h"

class QDateTime;
class QString;

// The host callback. The two parameters carry integers or record pointers;
// they are intptr_t so a pointer fits on x86_64, and plain int on i386.
typedef int (*HostCallback)(void* target, unsigned int code, intptr_t param1, intptr_t param2);

#pragma pack(push, 1)

// Module information record copied to the host by GetModuleInfo.
struct MODULE_INFO {
    char name[255];
    char description[255];
    char reserved1[769];
    uint32_t numberThird;  // the constructor's numbers land in reverse order
    uint32_t numberSecond;
    uint32_t numberFirst;
    uint32_t constant8;
    char contextName[20];
    uint32_t constant57;
    char reserved2[996];
};

// Object registration (3000) and lookup (3001).
struct coreInterfaceRecord {
    char name[255];
    char vendor[255];
    char key[255];
    int32_t kind;
    void* object;  // 3000: the module object; 3001: where the host stores the object found
};

// Subscription to a named event (3110).
struct coreEventSubscribe {
    char name[255];
    uint32_t zero;
    void* registration;
    void* module;
    int32_t minusOne;
};

// Dropping all subscriptions of a module (3111).
struct coreEventUnsubscribe {
    void* registration;
    void* module;
};

// Creation of a named event (3112); the host writes the handle.
struct coreEventCreate {
    char name[255];
    void* handle;
};

// Event payload raised with 3113. The first two words and whatever follows the
// name belong to the caller; the module fills the handle and the name.
struct VMEvent {
    int32_t word0;
    int32_t word1;
    void* handle;
#if defined(__i386__)
    int32_t word3;  // on x86_64 the wider handle already covers this word
#endif
    char name[255];
};

// One language the host offers (3116 counts them, 3117 fills them).
struct coreLanguage {
    char name[255];
    char text2[255];
    char text3[255];
    int32_t current;  // 1 for the host's current language
};

// Host folder path by type (3128).
struct coreFolder {
    int32_t type;
    char16_t path[1024];
};

// Registration of a text with the host's translator (3019).
struct coreTranslate {
    char context[1024];
    char key[1024];
    char text[1024];
};

// One log message handed to the host's log sink (obtained with 3205).
struct LogRecord {
    const char16_t* source;
    int32_t type;
    int32_t level;
    const char16_t* text;
};
typedef int (*LogSink)(const LogRecord* record);

// The host's date formatters (3207).
typedef int (*DateTimeFormatter)(const QDateTime& time, const QString& format, QString* out);
typedef int (*TimeTFormatter)(long time, const QString& format, bool flag, QString* out);
struct coreDateTimeFormatters {
    DateTimeFormatter formatDateTime;
    TimeTFormatter formatTime;
};

// The host's proxy settings (3516); user and password arrive base64-encoded.
struct mwiProxyState {
    int32_t state;
    char host[256];
    int32_t port;
    char user[255];
    char password[257];
};

// One line of a proxy test's result.
struct mwiTesProxyResult {
    char name[255];
    char host[257];
    int32_t port;
    int32_t failed;
};

// A proxy test requested by the host (3517).
struct mwiTesProxy {
    mwiProxyState proxy;
    int32_t proxyType;
    mwiTesProxyResult results[10];
    int32_t resultCount;
};

// Connection state change (3529).
struct mwiSetStateConnect {
    int32_t state;
};

#pragma pack(pop)

DM_ASSERT_SIZE(MODULE_INFO, 2315, 2315);
DM_ASSERT_OFFSET(MODULE_INFO, description, 255, 255);
DM_ASSERT_OFFSET(MODULE_INFO, reserved1, 510, 510);
DM_ASSERT_OFFSET(MODULE_INFO, numberThird, 1279, 1279);
DM_ASSERT_OFFSET(MODULE_INFO, numberSecond, 1283, 1283);
DM_ASSERT_OFFSET(MODULE_INFO, numberFirst, 1287, 1287);
DM_ASSERT_OFFSET(MODULE_INFO, constant8, 1291, 1291);
DM_ASSERT_OFFSET(MODULE_INFO, contextName, 1295, 1295);
DM_ASSERT_OFFSET(MODULE_INFO, constant57, 1315, 1315);
DM_ASSERT_OFFSET(MODULE_INFO, reserved2, 1319, 1319);

DM_ASSERT_SIZE(coreInterfaceRecord, 773, 777);
DM_ASSERT_OFFSET(coreInterfaceRecord, vendor, 255, 255);
DM_ASSERT_OFFSET(coreInterfaceRecord, key, 510, 510);
DM_ASSERT_OFFSET(coreInterfaceRecord, kind, 765, 765);
DM_ASSERT_OFFSET(coreInterfaceRecord, object, 769, 769);

DM_ASSERT_SIZE(coreEventSubscribe, 271, 279);
DM_ASSERT_OFFSET(coreEventSubscribe, zero, 255, 255);
DM_ASSERT_OFFSET(coreEventSubscribe, registration, 259, 259);
DM_ASSERT_OFFSET(coreEventSubscribe, module, 263, 267);
DM_ASSERT_OFFSET(coreEventSubscribe, minusOne, 267, 275);

DM_ASSERT_SIZE(coreEventUnsubscribe, 8, 16);
DM_ASSERT_OFFSET(coreEventUnsubscribe, module, 4, 8);

DM_ASSERT_SIZE(coreEventCreate, 259, 263);
DM_ASSERT_OFFSET(coreEventCreate, handle, 255, 255);

DM_ASSERT_SIZE(VMEvent, 271, 271);
DM_ASSERT_OFFSET(VMEvent, handle, 8, 8);
DM_ASSERT_OFFSET(VMEvent, name, 16, 16);

DM_ASSERT_SIZE(coreLanguage, 769, 769);
DM_ASSERT_OFFSET(coreLanguage, current, 765, 765);

DM_ASSERT_SIZE(coreFolder, 2052, 2052);
DM_ASSERT_OFFSET(coreFolder, path, 4, 4);

DM_ASSERT_SIZE(coreTranslate, 3072, 3072);
DM_ASSERT_OFFSET(coreTranslate, key, 1024, 1024);
DM_ASSERT_OFFSET(coreTranslate, text, 2048, 2048);

DM_ASSERT_SIZE(LogRecord, 16, 24);
DM_ASSERT_OFFSET(LogRecord, type, 4, 8);
DM_ASSERT_OFFSET(LogRecord, level, 8, 12);
DM_ASSERT_OFFSET(LogRecord, text, 12, 16);

DM_ASSERT_SIZE(coreDateTimeFormatters, 8, 16);

DM_ASSERT_SIZE(mwiProxyState, 776, 776);
DM_ASSERT_OFFSET(mwiProxyState, host, 4, 4);
DM_ASSERT_OFFSET(mwiProxyState, port, 260, 260);
DM_ASSERT_OFFSET(mwiProxyState, user, 264, 264);
DM_ASSERT_OFFSET(mwiProxyState, password, 519, 519);

DM_ASSERT_SIZE(mwiTesProxyResult, 520, 520);
DM_ASSERT_OFFSET(mwiTesProxyResult, host, 255, 255);
DM_ASSERT_OFFSET(mwiTesProxyResult, port, 512, 512);
DM_ASSERT_OFFSET(mwiTesProxyResult, failed, 516, 516);

DM_ASSERT_SIZE(mwiTesProxy, 5984, 5984);
DM_ASSERT_OFFSET(mwiTesProxy, proxyType, 776, 776);
DM_ASSERT_OFFSET(mwiTesProxy, results, 780, 780);
DM_ASSERT_OFFSET(mwiTesProxy, resultCount, 5980, 5980);
