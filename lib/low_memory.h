// LowMemory: zero-filled memory that lies wholly below 4 GiB, for records
// that hand a driver the 32-bit address of a buffer.
#pragma once

#include <cstddef>
#include <cstdint>

class LowMemory {
public:
    LowMemory() = default;
    LowMemory(LowMemory &&other) noexcept;
    LowMemory &operator=(LowMemory &&other) noexcept;
    LowMemory(const LowMemory &) = delete;
    LowMemory &operator=(const LowMemory &) = delete;
    ~LowMemory();

    // size zero-filled bytes below 4 GiB; empty (errno set) when the
    // system has none to give.
    static LowMemory allocate(size_t size);

    void *get() const { return addr_; }
    size_t size() const { return size_; }
    explicit operator bool() const { return addr_ != nullptr; }

private:
    void release();

    void *addr_ = nullptr;
    size_t size_ = 0;
};

// The search behind allocate where the system has no flag that asks for low
// memory (any 64-bit system but x86-64): maps size zero-filled bytes at the
// first free page-aligned candidate address from *cursor up, below 4 GiB,
// and moves *cursor past it. Null (errno set) when no candidate is free.
void *map_below_4gib(size_t size, uint64_t *cursor);

// The 32-bit form of an address inside a LowMemory area.
uint32_t low_address(const void *p);
