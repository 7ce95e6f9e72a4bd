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

// The 32-bit form of an address inside a LowMemory area.
uint32_t low_address(const void *p);
