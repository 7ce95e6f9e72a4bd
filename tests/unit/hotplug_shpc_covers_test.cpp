// Which devices an SHPC's slots hold: the slot-count field of each bus
// speed, the range from the first device, and the unknown speed codes.
#include <gtest/gtest.h>

#include "hotplug/shpc.h"
#include "hotplug_capture.h"

namespace {

ShpcInfo shpc(uint32_t speed, uint32_t avail1, uint32_t avail2, uint8_t first_device)
{
    ShpcInfo s{};
    s.magic = SHPC_MAGIC;
    s.domain = 1;
    s.secondary_bus = 0x20;
    s.slots_available_1 = avail1;
    s.slots_available_2 = avail2;
    s.slot_config = uint32_t{first_device} << 8 | 0xffe000ff;  // other bits ignored
    s.sec_bus_config = speed | 0xfff0;
    snprintf(s.bus_id, sizeof s.bus_id, "0001:1f:03.0");
    return s;
}

TEST(HotplugShpcCovers, EachSpeedReadsItsOwnSlotCount)
{
    // The other 5-bit fields hold decoys; bits above a field are ignored.
    struct Case {
        uint32_t speed, avail1, avail2;
        uint8_t slots;
    } cases[] = {
        {0, 0xffff1fe3, 0x1f, 3}, {1, 0x1f1f1f1f, 0xffe5, 5}, {2, 0x1f1fe61f, 0x1f, 6},
        {3, 0x1fe71f1f, 0x1f, 7}, {4, 0xe41f1f1f, 0x1f, 4},
    };
    for (const Case &c : cases) {
        ShpcInfo s = shpc(c.speed, c.avail1, c.avail2, 2);
        for (int device = 0; device < 0x20; device++)
            EXPECT_EQ(shpc_covers_device(s, 1, 0x20, device), device >= 2 && device < 2 + c.slots)
                << "speed " << c.speed << " device " << device;
        EXPECT_EQ(shpc_covers_device(s, 0, 0x20, 2), 0);  // another domain
        EXPECT_EQ(shpc_covers_device(s, 1, 0x1f, 2), 0);  // not the secondary bus
        EXPECT_EQ(s.first_device, 2);
        EXPECT_EQ(s.slot_count, c.slots);
    }
}

TEST(HotplugShpcCovers, UnknownSpeedCodesFail)
{
    for (uint32_t speed : {5u, 6u, 7u}) {
        Said said;
        ShpcInfo s = shpc(speed, 0x1f1f1f1f, 0x1f, 1);
        EXPECT_EQ(shpc_covers_device(s, 1, 0x20, 1), -1);
        EXPECT_EQ(said.stderr_text(), "ERROR: there was a fatal error(c8d).\n");
        EXPECT_EQ(said.log_text(), "ERR: there was a fatal error(c8d).\nERR: SHPC 0001:1f:03.0 unknown "
                                   "Secondary Bus Configuration Register 0xfff" +
                                       std::to_string(speed) + "\n");
        EXPECT_EQ(s.slot_count, 0);
    }
}

} // namespace
