#include "kernfs_order.hpp"

#include <algorithm>
#include <cstdint>

unsigned kernfs_name_hash(std::string_view name)
{
    // partial_name_hash() per byte, end_name_hash() as hash_64(hash, 32),
    // then kernfs keeps 31 bits and reserves 0, 1 and INT_MAX.
    // x86's char is signed: the kernel widens a byte above 0x7f with its sign.
    std::uint64_t hash = 0;
    for (char ch : name) {
        const auto c = static_cast<std::uint64_t>(static_cast<std::int64_t>(static_cast<signed char>(ch)));
        hash = (hash + (c << 4) + (c >> 4)) * 11;
    }
    auto h = static_cast<std::uint32_t>((hash * 0x61C8864680B583EBull) >> 32) & 0x7fffffffU;
    if (h < 2)
        h += 2;
    if (h >= 0x7fffffffU)
        h = 0x7fffffffU - 1;
    return h;
}

void sort_kernfs(std::vector<std::string>& names)
{
    std::stable_sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
        const unsigned ha = kernfs_name_hash(a), hb = kernfs_name_hash(b);
        return ha != hb ? ha < hb : a < b;
    });
}
