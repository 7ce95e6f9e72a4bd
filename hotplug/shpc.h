// Hot-plug controller discovery: the PCI-to-PCI bridges with the Standard
// Hot-Plug Controller capability and the PCI Express switch downstream ports
// whose slot has a power controller, and which slots they drive.
#pragma once

#include <cstdint>
#include <list>

#include "hotplug/pci_access.h"
#include "hotplug/records.h"

// The controllers found, in directory order; hba_count and hba_list unused.
// Emptied by each discovery, kept to the end of the run.
extern std::list<ShpcInfo> shpc_list;

// The SHPC registers that say how many slots the controller drives.
struct ShpcRegisters {
    uint32_t slots_available_1;
    uint32_t slots_available_2;
    uint32_t slot_config;
    uint32_t sec_bus_config;
};

// Walks the snapshot from its head and fills shpc_list. The number of
// controllers, or -1 (reported).
int search_shpc(PciSnap &snap);

// Configuration offset of f's capability `id`, 0 when there is none. A read
// failure is reported and counts as absence.
uint8_t find_capability(const PciFunction &f, uint8_t id);

// One register of the SHPC window (select, then data). 0, or -1 (reported).
int shpc_read_register(const PciFunction &f, uint8_t cap, uint8_t index, uint32_t *value);

// Puts a controller at the head of shpc_list. false (reported) on failure.
bool new_shpc_info(const PciFunction &f, uint32_t magic, uint8_t revision, uint16_t class_code,
                   uint32_t reserved_low, uint32_t reserved_high, uint8_t secondary_bus,
                   uint8_t cap, const ShpcRegisters &regs);

// An SHPC bus speed and mode (bits 2:0 of the Secondary Bus Configuration
// register): its name for people and its key for scripts.
struct ShpcBusSpeed {
    const char *name;  // "133 MHz PCI-X"
    const char *key;   // "pcix133"
};
// Null for the codes 5 to 7, which name no speed.
const ShpcBusSpeed *shpc_bus_speed(uint32_t sec_bus_config);

// The device numbers an SHPC's slots take at its current speed: first_device
// up to first_device + slot_count - 1. false for an unknown speed (nothing
// reported).
bool shpc_slot_range(const ShpcInfo &shpc, uint32_t *first_device, uint32_t *slot_count);

// Whether a controller already tried covers domain:bus:device: a port its
// whole secondary bus, an SHPC the slot range stored in its record.
bool shpc_holds_device(const ShpcInfo &shpc, uint16_t domain, uint8_t bus, uint8_t device);

// 1 when domain:bus:device sits in one of the controller's slots, 0 when
// not, -1 (reported) for an SHPC at an unknown bus speed. For an SHPC the
// first device and the slot count are stored in the record.
int shpc_covers_device(ShpcInfo &shpc, uint16_t domain, uint8_t bus, uint8_t device);
