#pragma once
// Records the update workflow exchanges with the host about what is
// installed: the configurations (3086, 3087), a configuration's module table
// (3088) and the path of a configuration's file (3209).
//
// Packed and little-endian like every host record. This header is compiled
// with -m32 by the test suite, so it uses nothing but the bare compiler.
#include <cstdint>

#include "protocol/RecordLayout.h"

#pragma pack(push, 1)

// One installed configuration (3087 fills an array of them).
struct coreNameConfig {
    char name[255];
    int32_t build;
    int32_t minor;
    int32_t major;
    int32_t moduleCount;    // entries in its module table
    int32_t moduleTableId;  // names that table in 3088
    int32_t reserved;
    int32_t current;        // 1 for the configuration in use
    char secondName[255];
};

// One entry of a configuration's module table (3088 fills an array of them):
// an installed module file and its version.
struct coreModuleEntry {
    char name[255];  // the module's file name, as in the server's module lists
    int32_t build;
    int32_t minor;
    int32_t major;
    int32_t fourth;  // carried into the version comparison; does not decide it
};

// 3087: the host fills count entries of configs (count as 3086 reported it).
struct coreConfigListRequest {
    int32_t count;
    coreNameConfig* configs;
};

// 3088: the host fills count entries of the table named tableId.
struct coreModuleTableRequest {
    int32_t tableId;
    int32_t count;
    coreModuleEntry* entries;
};

// 3209: the module writes the configuration's name, the host the path of its
// file; the host answers 1 when it has no such configuration.
struct corePathToConfig {
    char name[255];
    char16_t path[1024];
};

#pragma pack(pop)

DM_ASSERT_SIZE(coreNameConfig, 538, 538);
DM_ASSERT_OFFSET(coreNameConfig, build, 255, 255);
DM_ASSERT_OFFSET(coreNameConfig, minor, 259, 259);
DM_ASSERT_OFFSET(coreNameConfig, major, 263, 263);
DM_ASSERT_OFFSET(coreNameConfig, moduleCount, 267, 267);
DM_ASSERT_OFFSET(coreNameConfig, moduleTableId, 271, 271);
DM_ASSERT_OFFSET(coreNameConfig, reserved, 275, 275);
DM_ASSERT_OFFSET(coreNameConfig, current, 279, 279);
DM_ASSERT_OFFSET(coreNameConfig, secondName, 283, 283);

DM_ASSERT_SIZE(coreModuleEntry, 271, 271);
DM_ASSERT_OFFSET(coreModuleEntry, build, 255, 255);
DM_ASSERT_OFFSET(coreModuleEntry, minor, 259, 259);
DM_ASSERT_OFFSET(coreModuleEntry, major, 263, 263);
DM_ASSERT_OFFSET(coreModuleEntry, fourth, 267, 267);

DM_ASSERT_SIZE(coreConfigListRequest, 8, 12);
DM_ASSERT_OFFSET(coreConfigListRequest, configs, 4, 4);

DM_ASSERT_SIZE(coreModuleTableRequest, 12, 16);
DM_ASSERT_OFFSET(coreModuleTableRequest, count, 4, 4);
DM_ASSERT_OFFSET(coreModuleTableRequest, entries, 8, 8);

DM_ASSERT_SIZE(corePathToConfig, 2303, 2303);
DM_ASSERT_OFFSET(corePathToConfig, path, 255, 255);
