// Physical slot numbers of a hot-plug controller's slots, where the hardware
// or the kernel states them: the SHPC Slot Configuration register, the PCI
// Express Slot Capabilities register, and /sys/bus/pci/slots/*/address.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "hotplug/plan.h"

// One slot of a controller.
struct SlotView {
    int device = -1;         // device number on the secondary bus; -1: the
                             // port's one slot, which takes any device
    long physical = -1;      // physical slot number from the registers, -1: none stated
    std::vector<std::string> sysfs_names;  // /sys/bus/pci/slots entries with this address
};

// A slot the kernel lists: its directory name and the address it names.
struct SysfsSlot {
    std::string name;
    uint16_t domain = 0;
    uint8_t bus = 0;
    int device = -1;  // -1 when the address names the bus only
};

// Every /sys/bus/pci/slots/NAME/address that reads as an address, by name.
std::vector<SysfsSlot> read_sysfs_slots();

// The slots of an SHPC driving slot_count devices from first_device, with
// their physical numbers from the Slot Configuration register.
std::vector<SlotView> shpc_slots(const ShpcInfo &shpc, unsigned first_device,
                                 unsigned slot_count);

// The one slot of a PCI Express port; f is the port's function, whose Slot
// Capabilities register is read whole (null: not read).
std::vector<SlotView> port_slot(const ShpcInfo &port, const PciFunction *f);

// Adds to each slot the names of the kernel's slots at its address.
void match_sysfs_slots(const ShpcInfo &controller, std::vector<SlotView> &slots,
                       const std::vector<SysfsSlot> &sysfs);
