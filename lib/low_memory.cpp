// Memory below 4 GiB. A 32-bit program has no other kind. A 64-bit program
// must ask for it: a driver that takes a 32-bit buffer address would
// otherwise be handed the truncated address of some unrelated memory.
// x86-64 asks with MAP_32BIT; elsewhere the program names the addresses
// itself, one candidate after another.
#include "lib/low_memory.h"

#include <cerrno>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr uint64_t FOUR_GIB = uint64_t{1} << 32;
// The search steps over a taken candidate by 16 MiB, so that a large
// mapping in the way costs few attempts.
constexpr uint64_t STEP_OVER_TAKEN = uint64_t{16} << 20;

constexpr int PLAIN_FLAGS = MAP_PRIVATE | MAP_ANONYMOUS;

uint64_t round_up(uint64_t value, uint64_t to) { return (value + to - 1) / to * to; }

uint64_t page_size()
{
    long page = sysconf(_SC_PAGESIZE);
    return page > 0 ? static_cast<uint64_t>(page) : 4096;
}

[[maybe_unused]] bool lies_below_4gib(const void *p, size_t size)
{
    return reinterpret_cast<uintptr_t>(p) + uint64_t{size} <= FOUR_GIB;
}

// An anonymous mapping is zero-filled by the kernel.
void *map_low(size_t size)
{
    if constexpr (sizeof(void *) <= 4) {
        void *p = mmap(nullptr, size, PROT_READ | PROT_WRITE, PLAIN_FLAGS, -1, 0);
        return p == MAP_FAILED ? nullptr : p;
    } else {
#ifdef MAP_32BIT
        void *p = mmap(nullptr, size, PROT_READ | PROT_WRITE, PLAIN_FLAGS | MAP_32BIT, -1, 0);
        if (p == MAP_FAILED)
            return nullptr;
        if (lies_below_4gib(p, size))
            return p;
        munmap(p, size);
        errno = ENOMEM;
        return nullptr;
#else
        // Above the lowest 256 MiB, where a program not built as PIE and
        // its heap usually lie.
        static uint64_t cursor = uint64_t{256} << 20;
        return map_below_4gib(size, &cursor);
#endif
    }
}

} // namespace

void *map_below_4gib(size_t size, uint64_t *cursor)
{
#ifndef MAP_FIXED_NOREPLACE
    constexpr int MAP_FIXED_NOREPLACE = 0x100000;  // Linux 4.17; older C libraries lack the name
#endif
    const uint64_t page = page_size();
    const uint64_t length = round_up(size ? size : 1, page);
    for (uint64_t at = round_up(*cursor, page); at < FOUR_GIB && length <= FOUR_GIB - at;) {
        void *want = reinterpret_cast<void *>(static_cast<uintptr_t>(at));
        void *p = mmap(want, size, PROT_READ | PROT_WRITE, PLAIN_FLAGS | MAP_FIXED_NOREPLACE, -1, 0);
        if (p == want) {
            *cursor = at + length;
            return p;
        }
        if (p == MAP_FAILED) {
            if (errno != EEXIST)
                return nullptr;
        } else {
            // A kernel that does not know the flag takes the address as a
            // hint only and maps elsewhere: not what was asked for.
            munmap(p, size);
        }
        at += STEP_OVER_TAKEN;
    }
    errno = ENOMEM;
    return nullptr;
}

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
    LowMemory area;
    area.addr_ = map_low(size);
    if (area.addr_)
        area.size_ = size;
    return area;
}

uint32_t low_address(const void *p) { return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(p)); }
