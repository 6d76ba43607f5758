#pragma once
// Helpers for the update tests: list files written as the update server
// publishes them, records in a form one assertion can compare, and a host
// that answers 3086-3088 and 3209 from plain tables.
#include <ostream>
#include <vector>

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

#include "support/InstalledProductsHost.h"
#include "support/TestHost.h"
#include "transfer/support/FileHelpers.h"
#include "update/DlModule.h"

// Failure messages show record texts as text.
inline void PrintTo(const QByteArray& bytes, std::ostream* out)
{
    *out << '"' << bytes.toStdString() << '"';
}

inline QString writeListFile(const QTemporaryDir& dir, const QString& name, const QByteArray& bytes)
{
    writeText(dir.filePath(name), bytes);
    return dir.filePath(name);
}

// The texts of a list's records, one per record, for compact assertions.
inline std::vector<QByteArray> names(const dlListModule& list)
{
    std::vector<QByteArray> result;
    for (int i = 0; i < list.count; ++i)
        result.push_back(dlText(list.modules[i].name));
    return result;
}

// Every field of a record in its declared order, joined with '|', the state
// last: "name|version|extra|type|server|desc|local|aux|title|size|state".
inline QByteArray fields(const dlModule& m)
{
    return dlText(m.name) + '|' + dlText(m.version) + '|' + dlText(m.versionExtra) + '|'
           + dlText(m.type) + '|' + dlText(m.serverPath) + '|' + dlText(m.descPath) + '|'
           + dlText(m.localPath) + '|' + dlText(m.auxPath) + '|' + dlText(m.title) + '|'
           + dlText(m.sizeText) + '|' + QByteArray::number(m.state);
}

// A TestHost whose installed products come from the tables.
class ProductsHost : public InstalledProductsHost {
public:
    ProductsHost()
    {
        host.extraHandler = [this](unsigned int code, intptr_t param1, intptr_t) {
            return answer(code, param1);
        };
    }

    TestHost host;
};

// "name|secondName|a.b.c|current|moduleCount" of an installed configuration.
inline QByteArray describe(const coreNameConfig& c)
{
    const QString rest = QString("|%1.%2.%3|%4|%5").arg(c.major).arg(c.minor).arg(c.build).arg(c.current);
    return fieldBytes(c.name) + '|' + fieldBytes(c.secondName) + rest.arg(c.moduleCount).toLatin1();
}

// "name|a.b.c|fourth" of an installed module.
inline QByteArray describe(const coreModuleEntry& m)
{
    return fieldBytes(m.name) + QString("|%1.%2.%3|%4").arg(m.major).arg(m.minor).arg(m.build).arg(m.fourth).toLatin1();
}

template <class Record>
std::vector<QByteArray> describe(const std::vector<Record>& records)
{
    std::vector<QByteArray> result;
    for (const Record& record : records)
        result.push_back(describe(record));
    return result;
}
