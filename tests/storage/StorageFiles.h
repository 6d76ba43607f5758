#pragma once
// Whole-file reads and writes for the storage tests, the hand-written sample
// files under tests/data, and the test host answered by the reference host's
// store.
#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>
#include <gtest/gtest.h>

#include "StoreTestHost.h"

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
