#include "update/RecordGrowth.h"

#include <cstdlib>
#include <limits>

namespace {

// Whether a block of count records is full: its count is 0 or a power of two.
bool isFull(int32_t count)
{
    return count == 0 || (count & (count - 1)) == 0;
}

}  // namespace

std::size_t recordCapacity(int32_t count)
{
    if (count <= 0)
        return 0;
    std::size_t capacity = 1;
    while (capacity < std::size_t(count))
        capacity *= 2;
    return capacity;
}

dlModule* withRoomForOneMore(dlModule* modules, int32_t count)
{
    if (count < 0 || count == std::numeric_limits<int32_t>::max())
        return nullptr;
    if (!isFull(count))
        return modules;
    const std::size_t capacity = recordCapacity(count + 1);
    if (capacity > std::numeric_limits<std::size_t>::max() / sizeof(dlModule))
        return nullptr;
    return static_cast<dlModule*>(std::realloc(modules, capacity * sizeof(dlModule)));
}
