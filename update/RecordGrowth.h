#pragma once
// Growth of the realloc'ed dlModule arrays (dlListModule, CFileToDl). Those
// arrays carry a count and no capacity, and their layout stays as it is, so
// the capacity is a function of the count: the smallest power of two that
// holds it. A block of count records always has room for recordCapacity(count)
// records and is reallocated only when the count passes a power of two, so n
// appends copy fewer than 2n records in all, where a reallocation per append
// could copy up to n²/2.
#include <cstddef>
#include <cstdint>

#include "update/DlModule.h"

// Records a block holding count records has room for: 0 for none, otherwise
// the smallest power of two not below count.
std::size_t recordCapacity(int32_t count);

// A block with room for count + 1 records whose first count records are
// those of modules: modules itself while it has room, otherwise modules
// reallocated to the next capacity. Null when the block cannot grow (the
// allocation fails or the count or byte size would overflow); modules is
// then left as it was, to be freed by its owner.
dlModule* withRoomForOneMore(dlModule* modules, int32_t count);
