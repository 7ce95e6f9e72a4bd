// The owner of a device found through the index by bus gives what the walk
// over every controller gives: the same owner for every query, the same slot
// ranges stored in the same records, and a failure at the same query when an
// SHPC has an unknown bus speed, in tables with several controllers on one
// bus (the first in table order wins) and ports beside SHPCs.
#include <cstdio>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "hotplug/shpc.h"
#include "hotplug/shpc_owner.h"
#include "hotplug_capture.h"

namespace {

struct Query {
    uint16_t domain;
    uint8_t bus, device;
};

// The rule as written: try each controller in table order.
int walk(std::vector<ShpcInfo> &controllers, const Query &q, ShpcInfo **owner)
{
    *owner = nullptr;
    for (ShpcInfo &c : controllers) {
        int covers = shpc_covers_device(c, q.domain, q.bus, q.device);
        if (covers == -1)
            return -1;
        if (covers == 1) {
            *owner = &c;
            return 0;
        }
    }
    return 0;
}

// A deterministic mix: SHPCs at known speeds with 1-8 slots from device 0-4,
// ports, all on 6 buses of 2 domains; one SHPC with an unknown speed when
// `bad` is not negative.
std::vector<ShpcInfo> make_table(unsigned seed, int bad)
{
    std::vector<ShpcInfo> table;
    for (int i = 0; i < 24; i++) {
        unsigned r = seed * 2654435761u + static_cast<unsigned>(i) * 40503u;
        ShpcInfo c{};
        c.domain = static_cast<uint16_t>(r % 2);
        c.secondary_bus = static_cast<uint8_t>(0x10 + (r >> 3) % 6);
        if ((r >> 7) % 4 == 0) {
            c.magic = PCIE_PORT_MAGIC;
        } else {
            c.magic = SHPC_MAGIC;
            uint32_t slots = 1 + (r >> 9) % 8;
            c.slots_available_1 = slots << 24;  // 133 MHz PCI-X
            c.slot_config = ((r >> 13) % 5) << 8;
            c.sec_bus_config = i == bad ? 6 : 4;
        }
        snprintf(c.bus_id, sizeof c.bus_id, "%04x:00:%02x.0", c.domain.get(), i);
        table.push_back(c);
    }
    return table;
}

std::vector<Query> make_queries(unsigned seed)
{
    std::vector<Query> queries;
    for (int i = 0; i < 400; i++) {
        unsigned r = seed * 7919u + static_cast<unsigned>(i) * 2246822519u;
        queries.push_back({static_cast<uint16_t>(r % 2), static_cast<uint8_t>(0x0f + (r >> 4) % 8),
                           static_cast<uint8_t>((r >> 10) % 12)});
    }
    return queries;
}

TEST(ShpcOwner, SameOwnersStoredRangesAndFailuresAsTheWalk)
{
    Said said;  // the unknown-speed reports
    int failures = 0, owned = 0, unowned = 0;
    for (unsigned seed = 1; seed <= 40; seed++) {
        int bad = seed % 3 == 0 ? static_cast<int>(seed % 24) : -1;
        std::vector<ShpcInfo> expected = make_table(seed, bad);
        std::vector<ShpcInfo> actual = expected;
        ShpcOwnerFinder finder(actual.data(), static_cast<uint32_t>(actual.size()));
        for (const Query &q : make_queries(seed)) {
            ShpcInfo *want = nullptr, *got = nullptr;
            int rw = walk(expected, q, &want);
            int rf = finder.find(q.domain, q.bus, q.device, &got);
            ASSERT_EQ(rf, rw) << "seed " << seed;
            if (rw == -1) {
                failures++;
                break;  // the build stops at the first failure
            }
            ASSERT_EQ(got ? got - actual.data() : -1, want ? want - expected.data() : -1)
                << "seed " << seed << " query " << q.domain << ":" << int(q.bus) << ":"
                << int(q.device);
            (want ? owned : unowned)++;
        }
        for (size_t i = 0; i < expected.size(); i++)
            ASSERT_EQ(memcmp(&expected[i], &actual[i], sizeof(ShpcInfo)), 0)
                << "seed " << seed << " record " << i;
    }
    // The mix exercised every outcome.
    EXPECT_GT(failures, 0);
    EXPECT_GT(owned, 1000);
    EXPECT_GT(unowned, 1000);
}

} // namespace
