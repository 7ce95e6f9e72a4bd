// Finding a function by address: the same record as a walk from the head,
// for every address of a snapshot that also lists some addresses twice, and
// after functions leave the snapshot. The functions have no config file, so
// a look-up that touched configuration space would fail to open it.
#include <gtest/gtest.h>

#include "hotplug/pci_access.h"

namespace {

PciFunction &add_at_head(PciSnap &snap, uint16_t domain, uint8_t bus, uint8_t device,
                         uint8_t function, uint16_t tag)
{
    snap.functions.emplace_front();
    PciFunction &f = snap.functions.front();
    f.snap = &snap;
    f.config_path = "/nonexistent/config";
    f.domain = domain;
    f.bus = bus;
    f.device = device;
    f.function = function;
    f.device_id = tag;  // tells records of one address apart
    return f;
}

const PciFunction *walk(const PciSnap &snap, uint16_t domain, uint8_t bus, uint8_t device,
                        uint8_t function)
{
    for (const PciFunction &f : snap.functions)
        if (f.domain == domain && f.bus == bus && f.device == device && f.function == function)
            return &f;
    return nullptr;
}

TEST(PciFind, SameRecordAsTheWalkFromTheHead)
{
    PciSnap snap;
    EXPECT_EQ(pci_find_function(snap, 0, 0, 0, 0), nullptr);  // empty snapshot
    uint16_t tag = 0;
    for (int round = 0; round < 2; round++)  // every address twice, in two rounds
        for (uint16_t domain : {0, 1, 0xffff})
            for (int bus = 0; bus < 256; bus += 51)
                for (uint8_t device : {0, 7, 31})
                    for (uint8_t function : {0, 3, 7})
                        if (round == 0 || (bus + device + function) % 2 == 0)
                            add_at_head(snap, domain, static_cast<uint8_t>(bus), device,
                                        function, tag++);
    // Addresses that differ from listed ones in one field only are absent.
    EXPECT_EQ(pci_find_function(snap, 2, 0, 0, 0), nullptr);
    EXPECT_EQ(pci_find_function(snap, 0, 1, 0, 0), nullptr);
    EXPECT_EQ(pci_find_function(snap, 0, 0, 1, 0), nullptr);
    EXPECT_EQ(pci_find_function(snap, 0, 0, 0, 1), nullptr);
    for (const PciFunction &f : snap.functions) {
        const PciFunction *found = pci_find_function(snap, f.domain, f.bus, f.device, f.function);
        ASSERT_NE(found, nullptr);
        EXPECT_EQ(found, walk(snap, f.domain, f.bus, f.device, f.function))
            << f.domain << ":" << int(f.bus) << ":" << int(f.device) << "." << int(f.function);
    }
    EXPECT_EQ(snap.cached_function, nullptr);  // nothing was opened

    // The head-most record of an address leaves: the other one is found.
    const PciFunction *first = pci_find_function(snap, 1, 51, 7, 0);
    ASSERT_NE(first, nullptr);
    uint16_t first_tag = first->device_id;
    for (auto it = snap.functions.begin(); it != snap.functions.end(); ++it)
        if (&*it == first) {
            pci_function_free(snap.functions, it);
            break;
        }
    const PciFunction *second = pci_find_function(snap, 1, 51, 7, 0);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(second->device_id, first_tag);
    EXPECT_EQ(second, walk(snap, 1, 51, 7, 0));
}

} // namespace
