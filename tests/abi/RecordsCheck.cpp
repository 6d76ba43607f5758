// Compiled (not run) for i386 and for the native word size: every header of
// host records is listed here, and their static_asserts do the checking.
#include "module/HostRecords.h"
#include "update/InstallRecords.h"
#include "update/UpdateRecords.h"
#include "ui/DialogRecords.h"
#include "storage/StorageRecords.h"

#ifdef DM_EXPECT_I386
static_assert(sizeof(void*) == 4, "this check must be compiled with -m32");
#endif
