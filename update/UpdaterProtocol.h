#pragma once
// What the module tells the updater program: where it is, how it is started
// and how requests are written into the shared segment (protocol/InstallRecords.h).
#include <cstdint>

#include <QByteArray>
#include <QString>
#include <QStringList>

#include "protocol/InstallRecords.h"

// Names the updater program when set and not empty; tests and unusual
// installations point it elsewhere.
extern const char kUpdaterEnvironmentVariable[];

// "/usr/local/bin/updater", unless VELMORA_UPDATER names another program.
QString GetPathToUpdaterProgram();

// "org.velmora.sharedmemory-<seconds>", seconds since the epoch in decimal.
QString updaterSegmentKey(qint64 secondsSinceEpoch);

// The updater's three arguments: "-u"; the backup folder in local 8-bit,
// base64-encoded and enclosed in double quotes; the segment key. The quotes
// are part of the argument: the updater strips them.
QStringList updaterArguments(const QString& backupFolder, const QString& key);

// The host folder type a file of this type is installed into: the type itself
// for the types the host has folders for, the default install folder (150)
// for any other.
int installFolderType(int type);

// Reads a record's type text as a decimal number, as atoi does. A text that
// reads as 0 is accepted only when it is exactly "0": empty or non-numeric
// text is an error, not type 0. Returns false for such text.
bool parseInstallType(const QByteArray& text, int* type);

// Requests. Each one zeroes the whole segment first, so no field of an
// earlier request or answer survives; paths are cut to kUpdatePathUnits.
void writeInstallRequest(umUpdateFile& segment, const QString& source, const QString& folder);
void writeConfigCopyRequest(umUpdateFile& segment, const QString& source, const QString& folder);
void writeFinished(umUpdateFile& segment);

// A path field's text, up to its terminator or the end of the field.
QString segmentPath(const char16_t (&field)[kUpdatePathUnits]);
