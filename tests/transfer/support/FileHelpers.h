#pragma once
#include <QByteArray>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QString>
#include <QStringList>

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

// Writes the file, making its folder first.
inline bool writeText(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

// The file's bytes; empty when it cannot be read.
inline QByteArray readFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}

// Every file below folder (hidden ones too), relative to it, sorted.
inline QStringList filesBelow(const QString& folder)
{
    QStringList files;
    QDirIterator it(folder, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext())
        files << QDir(folder).relativeFilePath(it.next());
    files.sort();
    return files;
}
