// The search for memory below 4 GiB on systems without MAP_32BIT, run here
// on x86-64 too, where the tool itself asks with the flag.
#include <cstdint>
#include <sys/mman.h>

#include <gtest/gtest.h>

#include "lib/low_memory.h"

namespace {

TEST(LowMemorySearch, StepsOverATakenCandidateAndAnswersOnlyTheAddressAsked)
{
    constexpr size_t size = 36;
    uint64_t cursor = uint64_t{1} << 30;
    void *first = map_below_4gib(size, &cursor);
    ASSERT_NE(first, nullptr);
    uint64_t again = reinterpret_cast<uintptr_t>(first);
    void *second = map_below_4gib(size, &again);
    ASSERT_NE(second, nullptr);
    EXPECT_GT(reinterpret_cast<uintptr_t>(second), reinterpret_cast<uintptr_t>(first));
    EXPECT_LE(reinterpret_cast<uintptr_t>(second) + size, uint64_t{1} << 32);
    EXPECT_EQ(static_cast<const unsigned char *>(second)[size - 1], 0);
    uint64_t past_end = (uint64_t{1} << 32) - 1;
    EXPECT_EQ(map_below_4gib(size, &past_end), nullptr);
    munmap(first, size);
    munmap(second, size);
}

} // namespace
