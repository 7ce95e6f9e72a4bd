// Memory below 4 GiB. A 32-bit program has no other kind. A 64-bit program
// must ask for it: a driver that takes a 32-bit buffer address would
// otherwise be handed the truncated address of some unrelated memory.
#include "lib/low_memory.h"

#include <cerrno>
#include <sys/mman.h>
#include <utility>

namespace {

constexpr uint64_t FOUR_GIB = uint64_t{1} << 32;

int low_mapping_flags()
{
    int flags = MAP_PRIVATE | MAP_ANONYMOUS;
#ifdef MAP_32BIT
    if constexpr (sizeof(void *) > 4)
        flags |= MAP_32BIT;
#endif
    return flags;
}

} // namespace

LowMemory::LowMemory(LowMemory &&other) noexcept
    : addr_(std::exchange(other.addr_, nullptr)), size_(std::exchange(other.size_, 0))
{
}

LowMemory &LowMemory::operator=(LowMemory &&other) noexcept
{
    if (this != &other) {
        release();
        addr_ = std::exchange(other.addr_, nullptr);
        size_ = std::exchange(other.size_, 0);
    }
    return *this;
}

LowMemory::~LowMemory() { release(); }

void LowMemory::release()
{
    if (addr_) {
        int saved = errno;
        munmap(addr_, size_);
        errno = saved;
    }
    addr_ = nullptr;
    size_ = 0;
}

LowMemory LowMemory::allocate(size_t size)
{
    // An anonymous mapping is zero-filled by the kernel.
    void *p = mmap(nullptr, size, PROT_READ | PROT_WRITE, low_mapping_flags(), -1, 0);
    if (p == MAP_FAILED)
        return {};
    LowMemory area;
    area.addr_ = p;
    area.size_ = size;
    // Without MAP_32BIT (a 64-bit system other than x86-64) nothing asked
    // for low memory, so check what came back.
    if (reinterpret_cast<uintptr_t>(p) + size > FOUR_GIB) {
        area.release();
        errno = ENOMEM;
    }
    return area;
}

uint32_t low_address(const void *p) { return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(p)); }
