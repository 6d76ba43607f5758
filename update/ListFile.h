#pragma once
// Reading a list file published by the update server.
#include <QString>
#include <QStringList>

// Reads every line of a text file, each without its line end (LF or CR LF).
// False, with lines left empty, when the file cannot be opened.
bool readListLines(const QString& fileName, QStringList& lines);
