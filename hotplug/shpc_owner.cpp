// Which controller holds a labelled adapter. The rule is a walk of the
// controllers in table order, trying each with shpc_covers_device until one
// covers the device; trying an SHPC stores its slot range in its record, and
// fails for an unknown bus speed. Walking every controller for every label
// costs labels x controllers. Here the walk is made once, as far as the
// labels need it: a controller covers only devices on its own secondary bus,
// so among those already tried the first that covers is found through an
// index by bus, with the slot range the try stored; only past them are
// further controllers tried, in order, exactly as the walk would.
#include "hotplug/shpc_owner.h"

#include <algorithm>
#include <new>

#include "hotplug/shpc.h"

namespace {

uint32_t bus_key(uint16_t domain, uint8_t bus) { return (uint32_t{domain} << 8) | bus; }

} // namespace

ShpcOwnerFinder::ShpcOwnerFinder(ShpcInfo *controllers, uint32_t count)
    : controllers_(controllers), count_(count)
{
    try {
        by_bus_.reserve(count);
    } catch (const std::bad_alloc &) {
        return;  // no index: every look-up walks, as the rule reads
    }
    for (uint32_t i = 0; i < count; i++)
        by_bus_.emplace_back(bus_key(controllers[i].domain, controllers[i].secondary_bus), i);
    std::sort(by_bus_.begin(), by_bus_.end());
    indexed_ = true;
}

int ShpcOwnerFinder::find(uint16_t domain, uint8_t bus, uint8_t device, ShpcInfo **owner)
{
    *owner = nullptr;
    if (indexed_) {
        uint32_t key = bus_key(domain, bus);
        auto it = std::lower_bound(by_bus_.begin(), by_bus_.end(), std::make_pair(key, 0u));
        for (; it != by_bus_.end() && it->first == key && it->second < tried_; ++it) {
            if (shpc_holds_device(controllers_[it->second], domain, bus, device)) {
                *owner = &controllers_[it->second];
                return 0;
            }
        }
    } else {
        tried_ = 0;
    }
    // None of those tried covers it: the walk goes on from there.
    for (uint32_t i = tried_; i < count_; i++) {
        int covers = shpc_covers_device(controllers_[i], domain, bus, device);
        if (covers == -1)
            return -1;
        if (indexed_)
            tried_ = i + 1;
        if (covers == 1) {
            *owner = &controllers_[i];
            return 0;
        }
    }
    return 0;
}
