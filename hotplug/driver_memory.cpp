// A 32-bit build has only addresses below 4 GiB; a 64-bit build gets them
// from LowMemory (mmap below 4 GiB), since a truncated heap address would
// hand the driver some unrelated memory. The areas are owned here and
// unmapped when the process ends.
#include "hotplug/driver_memory.h"

#include <cerrno>
#include <new>
#include <vector>

#include "lib/low_memory.h"

namespace {

std::vector<LowMemory> &driver_blocks()
{
    static std::vector<LowMemory> blocks;
    return blocks;
}

} // namespace

void *alloc_driver_block(size_t size)
{
    LowMemory area = LowMemory::allocate(size);
    if (!area)
        return nullptr;
    try {
        driver_blocks().push_back(std::move(area));
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
    return driver_blocks().back().get();
}

uint32_t driver_address(const void *block) { return low_address(block); }

void *driver_pointer(uint32_t address)
{
    return reinterpret_cast<void *>(static_cast<uintptr_t>(address));
}
