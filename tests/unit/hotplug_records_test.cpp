// The driver records: their bytes on the wire, the block sizes, and the
// lists handed out below 4 GiB.
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "hotplug/driver_memory.h"
#include "hotplug/hba_info.h"
#include "hotplug/records.h"
#include "hotplug_capture.h"

namespace {

template <typename T>
std::vector<uint8_t> bytes_of(const T &record)
{
    std::vector<uint8_t> b(sizeof record);
    memcpy(b.data(), &record, sizeof record);
    return b;
}

uint32_t u32_at(const std::vector<uint8_t> &b, size_t at)
{
    return b[at] | b[at + 1] << 8 | b[at + 2] << 16 | uint32_t{b[at + 3]} << 24;
}

TEST(HotplugRecords, ShpcInfoBytesLieWhereTheDriverReadsThem)
{
    ShpcInfo s{};
    s.magic = SHPC_MAGIC;
    s.domain = 0x1234;
    s.secondary_bus = 0x07;
    s.sec_bus_config = 0x4;
    s.reserved64[0] = 0x55667788;
    s.reserved64[1] = 0x11223344;
    s.hba_count = 2;
    s.hba_list = 0xa0b0c0d0;
    std::vector<uint8_t> b = bytes_of(s);
    ASSERT_EQ(b.size(), 76u);
    EXPECT_EQ(u32_at(b, 0), 0xfeedbeefu);
    EXPECT_EQ(b[8], 0x34);
    EXPECT_EQ(b[9], 0x12);
    EXPECT_EQ(b[38], 0x07);
    EXPECT_EQ(u32_at(b, 56), 4u);
    // The 64-bit field straight after sec_bus_config, little-endian.
    const uint8_t reserved[8] = {0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11};
    EXPECT_EQ(memcmp(&b[60], reserved, 8), 0);
    EXPECT_EQ(shpc_reserved64(s), 0x1122334455667788u);
    EXPECT_EQ(u32_at(b, 68), 2u);
    EXPECT_EQ(u32_at(b, 72), 0xa0b0c0d0u);
}

TEST(HotplugRecords, BlockSizes)
{
    EXPECT_EQ(hba_info_list_size(0), 8u);
    EXPECT_EQ(hba_info_list_size(3), 116u);
    EXPECT_EQ(shpc_info_table_size(0), 20u);
    EXPECT_EQ(shpc_info_table_size(2), 172u);
    // No wrap for the largest count a list can carry.
    EXPECT_EQ(hba_info_list_size(0xffffffffu), 8 + 36 * 0xffffffffull);
}

TEST(HotplugRecords, ListsAreZeroedCountedAndBelowFourGiB)
{
    for (uint32_t count : {0u, 1u, 3u, 200u}) {
        uint32_t size = 0;
        HbaInfoList *list = alloc_hba_info_list(count, &size);
        ASSERT_NE(list, nullptr) << count;
        EXPECT_EQ(size, hba_info_list_size(count)) << count;
        EXPECT_EQ(list->count, count);
        EXPECT_EQ(list->err_num, 0);
        EXPECT_LE(uint64_t{reinterpret_cast<uintptr_t>(list)} + size, uint64_t{1} << 32) << count;
        // The 32-bit address leads back to the list, as the driver sees it.
        EXPECT_EQ(driver_pointer(driver_address(list)), list);
        const auto *bytes = reinterpret_cast<const uint8_t *>(hba_info_records(list));
        for (size_t i = 0; i < 36 * size_t{count}; i++)
            ASSERT_EQ(bytes[i], 0) << count << " byte " << i;
    }
    // Without the size pointer, too.
    HbaInfoList *list = alloc_hba_info_list(2, nullptr);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->count, 2u);
}

TEST(HotplugRecords, DriverBlocksStayDistinct)
{
    auto *a = static_cast<uint8_t *>(alloc_driver_block(100));
    auto *b = static_cast<uint8_t *>(alloc_driver_block(100));
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    memset(a, 0xff, 100);
    for (int i = 0; i < 100; i++)
        ASSERT_EQ(b[i], 0);
}

} // namespace
