#pragma once
// Whole-file reads and writes for the storage tests, the hand-written sample
// files under tests/data, and a test host whose parameter-file codes
// (3163-3170) are answered by the reference host's own store, so the
// module's side is tested against the real tree and the real XML files.
#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>
#include <gtest/gtest.h>

#include "host/store/ParameterStore.h"
#include "support/TestHost.h"

inline QString dataFile(const char* name)
{
    return QStringLiteral(DM_TEST_DATA_DIR "/") + QLatin1String(name);
}

// A missing file reads as "<missing>", which no expected content equals.
inline QByteArray fileBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

// Writes bytes to path, making its folder first.
inline void writeFile(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
    ASSERT_EQ(file.write(bytes), bytes.size());
}

class StoreTestHost : public TestHost {
public:
    StoreTestHost()
    {
        extraHandler = [this](unsigned int code, intptr_t param1, intptr_t param2) {
            return ParameterStore::handles(code) ? store.handleMessage(code, param1, param2) : 0;
        };
    }

    // Loads path into the store; the handle the module would get from 3163.
    void* load(const QString& path) { return store.load(path); }

    ParameterStore store;
};
