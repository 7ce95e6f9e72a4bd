// Which devices a controller's slots hold: the slot count at each SHPC bus
// speed, the first device, the domain and secondary bus, and PCI Express
// ports.
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

TEST(HotplugShpcCovers, SlotCountFollowsTheBusSpeed)
{
    // Each speed reads its own 5-bit field; the other fields hold decoys.
    struct Case {
        uint32_t speed, avail1, avail2;
        uint8_t slots;
    } cases[] = {
        {0, 0x1f1f1f03, 0x1f, 3},   // 33 MHz PCI: register I bits 4:0
        {1, 0x1f1f1f1f, 0xffe5, 5}, // 66 MHz PCI: register II bits 4:0
        {2, 0x1f1f061f, 0x1f, 6},   // 66 MHz PCI-X: register I bits 12:8
        {3, 0x1f071f1f, 0x1f, 7},   // 100 MHz PCI-X: bits 20:16
        {4, 0x041f1f1f, 0x1f, 4},   // 133 MHz PCI-X: bits 28:24
        {4, 0xe41f1f1f, 0x1f, 4},   // bits above the field ignored
    };
    for (const Case &c : cases) {
        ShpcInfo s = shpc(c.speed, c.avail1, c.avail2, 2);
        for (int device = 0; device < 0x20; device++) {
            bool inside = device >= 2 && device < 2 + c.slots;
            EXPECT_EQ(shpc_covers_device(s, 1, 0x20, device), inside ? 1 : 0)
                << "speed " << c.speed << " device " << device;
        }
        EXPECT_EQ(s.first_device, 2) << c.speed;
        EXPECT_EQ(s.slot_count, c.slots) << c.speed;
    }
}

TEST(HotplugShpcCovers, OnlyTheSecondaryBusOfTheSameDomain)
{
    ShpcInfo s = shpc(4, 0x04000000, 0, 1);  // devices 1 to 4
    EXPECT_EQ(shpc_covers_device(s, 1, 0x20, 1), 1);
    EXPECT_EQ(shpc_covers_device(s, 1, 0x20, 4), 1);
    EXPECT_EQ(shpc_covers_device(s, 1, 0x20, 5), 0);
    EXPECT_EQ(shpc_covers_device(s, 1, 0x20, 0), 0);
    EXPECT_EQ(shpc_covers_device(s, 0, 0x20, 1), 0);
    EXPECT_EQ(shpc_covers_device(s, 1, 0x21, 1), 0);
    EXPECT_EQ(shpc_covers_device(s, 1, 0x1f, 3), 0);  // the bridge's own bus
    // Stored even when the device is not covered.
    ShpcInfo t = shpc(0, 2, 0, 9);
    EXPECT_EQ(shpc_covers_device(t, 7, 7, 7), 0);
    EXPECT_EQ(t.first_device, 9);
    EXPECT_EQ(t.slot_count, 2);
}

TEST(HotplugShpcCovers, NoSlotsCoverNothing)
{
    ShpcInfo s = shpc(0, 0, 0, 0);
    for (int device = 0; device < 0x20; device++)
        EXPECT_EQ(shpc_covers_device(s, 1, 0x20, device), 0) << device;
}

TEST(HotplugShpcCovers, UnknownSpeedsFail)
{
    for (uint32_t speed : {5u, 6u, 7u}) {
        Said said;
        ShpcInfo s = shpc(speed, 0x1f1f1f1f, 0x1f, 1);
        EXPECT_EQ(shpc_covers_device(s, 1, 0x20, 1), -1) << speed;
        EXPECT_EQ(said.stderr_text(), "ERROR: there was a fatal error(c8d).\n");
        char want[160];
        snprintf(want, sizeof want,
                 "ERR: there was a fatal error(c8d).\n"
                 "ERR: SHPC 0001:1f:03.0 unknown Secondary Bus Configuration Register 0x%x\n",
                 0xfff0 | speed);
        EXPECT_EQ(said.log_text(), want);
        EXPECT_EQ(s.slot_count, 0) << speed;
    }
}

TEST(HotplugShpcCovers, PciExpressPortHoldsItsWholeSecondaryBus)
{
    ShpcInfo p{};
    p.magic = PCIE_PORT_MAGIC;
    p.domain = 2;
    p.secondary_bus = 5;
    p.sec_bus_config = 7;  // never consulted for a port
    for (int device = 0; device < 0x20; device++)
        EXPECT_EQ(shpc_covers_device(p, 2, 5, device), 1) << device;
    EXPECT_EQ(shpc_covers_device(p, 2, 6, 0), 0);
    EXPECT_EQ(shpc_covers_device(p, 0, 5, 0), 0);
    EXPECT_EQ(p.first_device, 0);
    EXPECT_EQ(p.slot_count, 0);
}

} // namespace
