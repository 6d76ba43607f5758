#pragma once
// The server's configuration list: one configuration per line,
//   name,version,moduleListPath,descPath,title
// where the title is the rest of the line, commas included. The first line
// with fewer than four commas ends the list, like the module lists. A list is
// reduced to the configurations that are not installed or newer than
// installed, by rules that differ between the manual and the automatic mode.
#include <QString>
#include <QStringList>

#include "update/DlModule.h"
#include "protocol/UpdateRecords.h"

class CInstalledProducts;

// Takes one list line apart into a freshly parsed record: name (also kept in
// auxPath), version, serverPath (the configuration's own module list),
// descPath and title; the other texts empty, state -1. False for a malformed line.
bool parseConfigLine(const QString& line, dlModule& out);

// Whether an offered configuration is worth offering against the installed
// ones (the first of the same name decides):
// - not installed: offered;
// - in automatic mode, or when it is the configuration in use: offered when
//   the version is the same as or newer than the installed one;
// - otherwise: offered when any one part (major, minor or build) is greater
//   than the installed one's, each part compared on its own, so 1.5.0 is
//   offered over 2.0.0. A user browsing other configurations by hand is shown
//   any that differ upward in some part; this is not a numeric comparison.
bool isConfigOffered(const dlModule& offered, const coreNameConfig* installed, int installedCount,
                     bool autoMode);

// Appends the offered configurations of lines to list (not cleared first),
// stopping at the first malformed line.
void parseConfigLines(const QStringList& lines, dlListModule& list, const coreNameConfig* installed,
                      int installedCount, bool autoMode);

// Parses the configuration list in fileName. The installed configurations
// are asked from host for each parse, once the file has been read; an
// unreadable file appends nothing and asks nothing.
void parseConfigList(const QString& fileName, dlListModule& list, bool autoMode,
                     const CInstalledProducts& host);
