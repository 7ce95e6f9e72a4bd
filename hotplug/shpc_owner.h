// The controller whose slots hold a device: the first controller of the
// table, in table order, that covers it, found without trying every
// controller for every labelled adapter.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "hotplug/records.h"

class ShpcOwnerFinder {
public:
    // controllers: the table's records, count of them; kept, not owned.
    ShpcOwnerFinder(ShpcInfo *controllers, uint32_t count);

    // *owner = the first controller that covers domain:bus:device, or null.
    // 0, or -1 when trying a controller failed (reported by
    // shpc_covers_device). The controllers a plain walk would try are tried
    // too, in the same order, before their answer is relied on.
    int find(uint16_t domain, uint8_t bus, uint8_t device, ShpcInfo **owner);

private:
    ShpcInfo *controllers_;
    uint32_t count_;
    uint32_t tried_ = 0;  // controllers 0 .. tried_-1 have been tried
    bool indexed_ = false;
    std::vector<std::pair<uint32_t, uint32_t>> by_bus_;  // (domain:secondary bus, index)
};
