// Finding a function of the snapshot by its address. The HBA information
// build looks up every labelled busID; walking the list each time would cost
// labels x functions. A sorted index answers in log time and gives the same
// record as the walk from the head: the sort is stable over the list order,
// so among equal addresses the head-most comes first.
#include <algorithm>
#include <new>

#include "hotplug/pci_access.h"

namespace {

uint64_t address_key(uint16_t domain, uint8_t bus, uint8_t device, uint8_t function)
{
    return (uint64_t{domain} << 24) | (uint64_t{bus} << 16) | (uint64_t{device} << 8) | function;
}

using Entry = std::pair<uint64_t, const PciFunction *>;

bool build_index(const PciSnap &snap)
{
    try {
        snap.by_address.reserve(snap.functions.size());
    } catch (const std::bad_alloc &) {
        return false;  // no room for the index: the caller walks the list
    }
    for (const PciFunction &f : snap.functions)
        snap.by_address.emplace_back(address_key(f.domain, f.bus, f.device, f.function), &f);
    std::stable_sort(snap.by_address.begin(), snap.by_address.end(),
                     [](const Entry &a, const Entry &b) { return a.first < b.first; });
    return true;
}

const PciFunction *walk(const PciSnap &snap, uint64_t key)
{
    for (const PciFunction &f : snap.functions)
        if (address_key(f.domain, f.bus, f.device, f.function) == key)
            return &f;
    return nullptr;
}

} // namespace

const PciFunction *pci_find_function(const PciSnap &snap, uint16_t domain, uint8_t bus,
                                     uint8_t device, uint8_t function)
{
    uint64_t key = address_key(domain, bus, device, function);
    // The index is complete or empty: it is cleared whenever a function
    // leaves the snapshot, and the scan only adds before the first look-up.
    if (snap.by_address.size() != snap.functions.size()) {
        snap.by_address.clear();
        if (!build_index(snap))
            return walk(snap, key);
    }
    auto it = std::lower_bound(snap.by_address.begin(), snap.by_address.end(), key,
                               [](const Entry &e, uint64_t k) { return e.first < k; });
    return it != snap.by_address.end() && it->first == key ? it->second : nullptr;
}
