#pragma once
// Download records for the state-file tests: every text field filled, with
// characters the XML file must escape, spaces at both ends and non-ASCII text.
#include <cstddef>
#include <cstring>

#include <QByteArray>

#include "update/DlModule.h"

inline dlModule makeModule(const char* name, const char* version, const char* versionExtra, int state)
{
    dlModule module = emptyDlModule();
    setDlText(module.name, name);
    setDlText(module.version, version);
    setDlText(module.versionExtra, versionExtra);
    setDlText(module.type, "2");
    setDlText(module.serverPath, QByteArray("/modules/") + name + ".gz");
    setDlText(module.descPath, QByteArray("/desc/") + name + ".txt");
    setDlText(module.localPath, QByteArray("/home/user/Загрузки/") + name);
    setDlText(module.auxPath, "Config & <Main>");
    setDlText(module.title, QByteArray("  ") + name + " \"title\"  ");
    setDlText(module.sizeText, "12 kb");
    module.state = state;
    return module;
}

// Fields hold their text and zeros after it, so equal records are equal bytes
// up to the end of the last field (the padding behind it is no field).
inline bool sameRecord(const dlModule& actual, const dlModule& expected)
{
    return std::memcmp(&actual, &expected, offsetof(dlModule, sizeText) + kDlTextSize) == 0;
}
