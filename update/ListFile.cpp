#include "update/ListFile.h"

#include <QFile>
#include <QTextStream>

bool readListLines(const QString& fileName, QStringList& lines)
{
    lines.clear();
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    // The lists are text in the local 8-bit encoding, which is what a text
    // stream decodes by default; the stream also drops a CR before the LF.
    // Any other byte, a lone CR included, stays part of its line.
    QTextStream stream(&file);
    while (!stream.atEnd())
        lines.append(stream.readLine());
    file.close();
    return true;
}
