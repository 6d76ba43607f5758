#pragma once
// The shared segment through which the module hands files to the updater
// program, one request at a time.
//
// Both sides map the same 4112 bytes, so the layout is fixed byte for byte:
// packed, little-endian, the same on i386 and x86_64 (no pointers). This
// header is compiled with -m32 by the test suite, so it uses nothing but the
// bare compiler.
#include <cstdint>

#include "protocol/RecordLayout.h"

// 16-bit code units in each path field.
constexpr int kUpdatePathUnits = 1024;

#pragma pack(push, 1)

struct umUpdateFile {
    char16_t source[kUpdatePathUnits];       // module: the file to install, zero-filled
    char16_t destination[kUpdatePathUnits];  // module: the folder it goes into, zero-filled
    int32_t done;               // updater: 0 while pending, 1 or more once handled (or ready)
    int32_t error;              // updater: 0 when the last request succeeded, else an errno
    int32_t finished;           // module: 1 (all else zero) when no more files follow
    int32_t copyConfiguration;  // module: 1 for the configuration backup request
};

#pragma pack(pop)

constexpr int kUpdateSegmentSize = 4112;

DM_ASSERT_SIZE(umUpdateFile, 4112, 4112);
DM_ASSERT_OFFSET(umUpdateFile, destination, 2048, 2048);
DM_ASSERT_OFFSET(umUpdateFile, done, 4096, 4096);
DM_ASSERT_OFFSET(umUpdateFile, error, 4100, 4100);
DM_ASSERT_OFFSET(umUpdateFile, finished, 4104, 4104);
DM_ASSERT_OFFSET(umUpdateFile, copyConfiguration, 4108, 4108);
static_assert(sizeof(umUpdateFile) == kUpdateSegmentSize, "the segment is one record");
