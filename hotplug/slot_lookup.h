// The hot-plug slot that holds an adapter: its controller, found with the
// rule registration places adapters by, the slot's physical number and the
// kernel's names for it.
#pragma once

#include <cstdint>
#include <vector>

#include "hotplug/physical_slots.h"
#include "hotplug/plan.h"

struct SlotPlace {
    enum class Found {
        IN_SLOT,
        OUTSIDE,  // no controller's slots hold it
        UNKNOWN,  // the plan has no controllers, or one it would try has an
                  // SHPC at an unknown bus speed
    };
    Found found = Found::UNKNOWN;
    const ShpcInfo *controller = nullptr;
    SlotView slot;
};

// plan: built in COLLECT_ALL mode; sysfs: read_sysfs_slots(). Nothing is
// printed or logged.
SlotPlace find_slot(const RegistrationPlan &plan, uint16_t domain, uint8_t bus, uint8_t device,
                    const std::vector<SysfsSlot> &sysfs);
