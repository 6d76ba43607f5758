#pragma once
#include <QByteArray>
#include <QFile>
#include <QString>

// Deterministic, non-repeating content of any size.
inline QByteArray patternBytes(int size, unsigned seed = 1)
{
    QByteArray bytes(size, '\0');
    unsigned x = seed * 2654435761u + 1;
    for (int i = 0; i < size; ++i) {
        x = x * 1103515245u + 12345u;
        bytes[i] = char(x >> 16);
    }
    return bytes;
}

inline void writeText(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    file.open(QIODevice::WriteOnly | QIODevice::Truncate);
    file.write(bytes);
}

inline QByteArray readFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}
