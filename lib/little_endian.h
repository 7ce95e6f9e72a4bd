// LittleEndian<T>: an integer field of a record whose layout another party
// fixes as little-endian (a driver's request record). It holds the bytes in
// that order on every host and converts on each read and write, so code uses
// the field like a plain integer. On a little-endian host it is the integer
// itself: same size, alignment and code.
#pragma once

#include <bit>
#include <cstdint>
#include <type_traits>

static_assert(std::endian::native == std::endian::little ||
              std::endian::native == std::endian::big, "mixed-endian hosts are not known");

// value with its bytes in little-endian order (a no-op on such a host); the
// same call turns such bytes back into the value.
template <typename T>
constexpr T to_little_endian(T value) noexcept
{
    static_assert(std::is_integral_v<T>);
    if constexpr (std::endian::native == std::endian::little || sizeof(T) == 1) {
        return value;
    } else {
        using U = std::make_unsigned_t<T>;
        auto u = static_cast<U>(value);
        if constexpr (sizeof(T) == 2)
            u = static_cast<U>(__builtin_bswap16(u));
        else if constexpr (sizeof(T) == 4)
            u = static_cast<U>(__builtin_bswap32(u));
        else
            u = static_cast<U>(__builtin_bswap64(u));
        return static_cast<T>(u);
    }
}

template <typename T>
class LittleEndian {
public:
    LittleEndian() = default;  // trivial: a zero-filled block reads as 0
    constexpr LittleEndian(T value) noexcept : stored_(to_little_endian(value)) {}
    constexpr operator T() const noexcept { return to_little_endian(stored_); }
    constexpr LittleEndian &operator=(T value) noexcept
    {
        stored_ = to_little_endian(value);
        return *this;
    }
    constexpr LittleEndian &operator+=(T value) noexcept { return *this = static_cast<T>(T(*this) + value); }
    constexpr LittleEndian &operator++() noexcept { return *this += 1; }
    constexpr T operator++(int) noexcept
    {
        T old = *this;
        *this += 1;
        return old;
    }
    // The value, for printf-style arguments and templates that deduce.
    constexpr T get() const noexcept { return *this; }

private:
    T stored_;
};

using le16 = LittleEndian<uint16_t>;
using le32 = LittleEndian<uint32_t>;
using le32s = LittleEndian<int32_t>;

static_assert(sizeof(le32) == 4 && alignof(le32) == alignof(uint32_t));
static_assert(std::is_trivially_copyable_v<le32> && std::is_trivially_default_constructible_v<le32>);
