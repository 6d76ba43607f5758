#pragma once
// Layout checks for the packed records exchanged with the host.
//
// The host runs on i386 and reads every record by position, so each size and
// offset is pinned for i386. Where a record carries a pointer it is eight bytes
// wide on x86_64 and the record grows by the difference; both numbers are
// written down so that a change of either is caught.
#include <cstddef>

#define DM_IS_I386 (sizeof(void*) == 4)

#define DM_ASSERT_SIZE(type, i386Size, x64Size) \
    static_assert(sizeof(type) == (DM_IS_I386 ? (i386Size) : (x64Size)), \
                  "size of " #type)

#define DM_ASSERT_OFFSET(type, field, i386Offset, x64Offset) \
    static_assert(offsetof(type, field) == (DM_IS_I386 ? (i386Offset) : (x64Offset)), \
                  "offset of " #type "::" #field)
