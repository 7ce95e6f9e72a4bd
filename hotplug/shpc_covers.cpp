// Whether a controller's slots hold a device. A PCI Express port has one
// slot, and everything on its secondary bus sits in it; an SHPC drives a
// range of device numbers whose length depends on the current bus speed.
#include "hotplug/shpc.h"

#include <iterator>

#include "cli/core/report.h"
#include "hotplug/pci_regs.h"

namespace {

constexpr unsigned SITE_UNKNOWN_SPEED = 3213;

// Bits 2:0 of the Secondary Bus Configuration register, in code order: the
// speed and mode, and where the SHPC keeps the number of slots it drives at
// that speed (a 5-bit field of Slots Available I or II).
struct SpeedRow {
    ShpcBusSpeed speed;
    bool second_register;
    unsigned shift;
};
constexpr SpeedRow SPEEDS[] = {
    {{"33 MHz PCI", "pci33"}, false, 0},      {{"66 MHz PCI", "pci66"}, true, 0},
    {{"66 MHz PCI-X", "pcix66"}, false, 8},   {{"100 MHz PCI-X", "pcix100"}, false, 16},
    {{"133 MHz PCI-X", "pcix133"}, false, 24},
};

const SpeedRow *speed_row(uint32_t sec_bus_config)
{
    uint32_t code = sec_bus_config & SHPC_SEC_BUS_SPEED_MASK;
    return code < std::size(SPEEDS) ? &SPEEDS[code] : nullptr;
}

} // namespace

const ShpcBusSpeed *shpc_bus_speed(uint32_t sec_bus_config)
{
    const SpeedRow *row = speed_row(sec_bus_config);
    return row ? &row->speed : nullptr;
}

bool shpc_slot_range(const ShpcInfo &shpc, uint32_t *first_device, uint32_t *slot_count)
{
    const SpeedRow *row = speed_row(shpc.sec_bus_config);
    if (!row)
        return false;
    uint32_t reg = row->second_register ? shpc.slots_available_2 : shpc.slots_available_1;
    *slot_count = (reg >> row->shift) & SHPC_SLOT_COUNT_MASK;
    *first_device = (shpc.slot_config >> SHPC_FIRST_DEVICE_SHIFT) & SHPC_SLOT_COUNT_MASK;
    return true;
}

bool shpc_holds_device(const ShpcInfo &shpc, uint16_t domain, uint8_t bus, uint8_t device)
{
    if (domain != shpc.domain || bus != shpc.secondary_bus)
        return false;
    return shpc.magic == PCIE_PORT_MAGIC ||
           (shpc.first_device <= device &&
            uint32_t{device} < uint32_t{shpc.first_device} + shpc.slot_count);
}

int shpc_covers_device(ShpcInfo &shpc, uint16_t domain, uint8_t bus, uint8_t device)
{
    if (shpc.magic == PCIE_PORT_MAGIC)
        return shpc_holds_device(shpc, domain, bus, device) ? 1 : 0;

    uint32_t first, slots;
    if (!shpc_slot_range(shpc, &first, &slots)) {
        report_fatal(SITE_UNKNOWN_SPEED);
        log_err("SHPC %s unknown Secondary Bus Configuration Register 0x%x\n", shpc.bus_id,
                shpc.sec_bus_config.get());
        return -1;
    }
    shpc.first_device = static_cast<uint8_t>(first);
    shpc.slot_count = static_cast<uint8_t>(slots);
    return shpc_holds_device(shpc, domain, bus, device) ? 1 : 0;
}
