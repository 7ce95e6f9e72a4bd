// Finding the slot of one adapter asks the same owner finder the plan's
// counting pass asked, over the plan's controllers, so the answer cannot
// differ from where registration puts the adapter.
#include "hotplug/slot_lookup.h"

#include "cli/core/report.h"
#include "hotplug/shpc_owner.h"

SlotPlace find_slot(const RegistrationPlan &plan, uint16_t domain, uint8_t bus, uint8_t device,
                    const std::vector<SysfsSlot> &sysfs)
{
    SlotPlace place;
    if (!plan.built())
        return place;
    ShpcInfo *controllers = shpc_info_records(plan.table);
    ShpcOwnerFinder owners(controllers, plan.table->count);
    ShpcInfo *owner = nullptr;
    {
        // An unknown bus speed was already told among the plan's problems.
        CapturedMessages quiet;
        ReportCapture capture(quiet);
        if (owners.find(domain, bus, device, &owner) == -1)
            return place;
    }
    if (!owner) {
        place.found = SlotPlace::Found::OUTSIDE;
        return place;
    }
    place.found = SlotPlace::Found::IN_SLOT;
    place.controller = owner;
    ControllerSlots slots = plan.slots(static_cast<uint32_t>(owner - controllers));
    std::vector<SlotView> views = slots.whole_bus ? port_slot(*owner, plan.function(*owner))
                                                  : shpc_slots(*owner, slots.first_device,
                                                               slots.slot_count);
    match_sysfs_slots(*owner, views, sysfs);
    for (const SlotView &s : views)
        if (s.device == -1 || s.device == device)
            place.slot = s;
    return place;
}
