#include "locate/locate.h"

#include <algorithm>
#include <cstdio>

#include "hotplug/slot_lookup.h"
#include "locate/attention.h"
#include "locate/report.h"
#include "resolve/targets.h"

namespace {

// "DDDD:BB:DD", or "DDDD:BB" for a port's slot, which takes any device.
std::string slot_address(const ShpcInfo &c, int device)
{
    char buf[32];
    unsigned domain = c.domain.get(), bus = c.secondary_bus;
    if (device < 0)
        snprintf(buf, sizeof buf, "%04x:%02x", domain, bus);
    else
        snprintf(buf, sizeof buf, "%04x:%02x:%02x", domain, bus, static_cast<unsigned>(device));
    return buf;
}

const char *no_adapter_reason(TargetKind kind)
{
    if (kind == TargetKind::DEVICE_PATH)
        return "no adapter was found behind it";
    return "it is no busID, no label of the table and no volume-manager class with "
           "volumes behind an adapter";
}

// The kernel may list a slot under more than one name; the first with an
// indicator is the one written.
void set_indicator(const std::vector<std::string> &names, bool on, LocateOutcome &o)
{
    std::string why;  // the first name's reason for having no indicator
    for (const std::string &name : names) {
        AttentionResult r = set_attention(name, on);
        o.kernel_slot = name;
        o.state = r.state;
        if (r.kind == AttentionResult::SET)
            return;
        if (r.kind == AttentionResult::REFUSED) {
            o.status = EXIT_REFUSED;
            o.reason = "kernel slot \"" + name + "\": " + r.reason;
            return;
        }
        if (why.empty())
            why = !r.reason.empty() ? r.reason
                                    : "/sys/bus/pci/slots/" + name + " has no attention file";
    }
    o.kernel_slot = names.front();
    o.status = EXIT_NO_INDICATOR;
    o.reason = "kernel slot \"" + o.kernel_slot + "\" has no attention indicator (" + why + ")";
}

void locate_adapter(const RegistrationPlan &plan, const std::vector<SysfsSlot> &sysfs, bool on,
                    const TargetAdapter &a, LocateOutcome &o)
{
    o.bus_id = a.bus_id;
    SlotPlace place = find_slot(plan, a.domain, a.bus, a.device, sysfs);
    if (place.found == SlotPlace::Found::UNKNOWN) {
        o.status = EXIT_NOT_IN_SLOT;
        o.reason = "its slot cannot be told: a hot-plug controller it would be tried against "
                   "reports an unknown bus speed";
        return;
    }
    if (place.found == SlotPlace::Found::OUTSIDE) {
        o.status = EXIT_NOT_IN_SLOT;
        o.reason = "no hot-plug controller's slot holds it, so it has no indicator to light";
        return;
    }
    const ShpcInfo &c = *place.controller;
    o.controller = c.bus_id;
    o.slot_address = slot_address(c, place.slot.device);
    o.physical_slot = place.slot.physical;
    if (place.slot.sysfs_names.empty()) {
        o.status = EXIT_NO_KERNEL_SLOT;
        o.reason = "the kernel lists no slot at " + o.slot_address + ", its slot on hot-plug controller " +
                   o.controller + " (no entry of /sys/bus/pci/slots has that address: is the "
                   "hot-plug driver loaded?)";
        return;
    }
    set_indicator(place.slot.sysfs_names, on, o);
}

} // namespace

std::vector<LocateOutcome> locate_operands(const RegistrationPlan &plan, int count, char **operands,
                                           bool on, FILE *lines)
{
    std::vector<SysfsSlot> sysfs = read_sysfs_slots();
    std::vector<LocateOutcome> outcomes;
    for (int i = 0; i < count; i++) {
        Target t = resolve_target(operands[i]);
        LocateOutcome o;
        o.operand = operands[i];
        if (!t.resolved) {
            o.status = EXIT_NO_ADAPTER;
            o.reason = no_adapter_reason(t.kind);
            print_failure(o);
            outcomes.push_back(o);
            continue;
        }
        // A label or a class may name one function on several lines.
        std::vector<std::string> done;
        for (const TargetAdapter &a : t.adapters) {
            if (std::find(done.begin(), done.end(), a.bus_id) != done.end())
                continue;
            done.push_back(a.bus_id);
            LocateOutcome ao = o;
            locate_adapter(plan, sysfs, on, a, ao);
            if (ao.status != EXIT_DONE)
                print_failure(ao);
            else if (lines)
                write_text_outcome(lines, ao);
            outcomes.push_back(ao);
        }
    }
    return outcomes;
}
