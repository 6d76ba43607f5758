#pragma once
// Version decisions of the update workflow: whether an offered version is
// newer than an installed one, whether a configuration qualifies for the
// automatic mode, and which installed configuration is the current one.
#include <cstdint>

#include <QString>

#include "protocol/UpdateRecords.h"

// A version text a.b.c taken apart.
struct VersionParts {
    int major = 0;
    int minor = 0;
    int build = 0;
};

// Splits a version text at its dots; each part is converted base 10 and text
// that is not a number gives 0. A missing dot is not an error: the remaining
// text serves as the part and stays the rest, so "5" reads as 5.5.5 and "1.2"
// as 1.2.2. Older servers publish such short versions and expect exactly this.
VersionParts splitVersion(const QString& version);

// A version as one number, major*10000 + minor*100 + build, in signed 32-bit
// arithmetic: a minor or build of 100 or more spills into the next place and
// a sum beyond 32 bits wraps around as it does on the module's i386 platform.
int32_t versionNumber(int major, int minor, int build);

// True when version is strictly newer than the installed major.minor.build.
// versionExtra and fourth are carried for the callers' symmetry and do not
// influence the result.
bool isNewVersionModule(int major, int minor, int build, int fourth, const QString& version,
                        const QString& versionExtra);

// True when major.minor.build is the same as or newer than cfg's version:
// unlike isNewVersionModule, an equal version qualifies.
bool isGoodConfigForAuto(int major, int minor, int build, coreNameConfig cfg);

// Index of the first configuration whose current flag is 1; -1 when none is.
int getCurrentConfigurationIndex(const coreNameConfig* configs, int count);
