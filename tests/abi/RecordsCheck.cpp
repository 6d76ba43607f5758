// Compiled (not run) for i386 and for the native word size: every header of
// host records is listed here, and their static_asserts do the checking.
#include "protocol/HostRecords.h"
#include "protocol/InstallRecords.h"
#include "protocol/UpdateRecords.h"
#include "protocol/DialogRecords.h"
#include "protocol/StorageRecords.h"

#ifdef DM_EXPECT_I386
static_assert(sizeof(void*) == 4, "this check must be compiled with -m32");
#endif
