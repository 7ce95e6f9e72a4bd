// Whether a controller's slots hold a device. A PCI Express port has one
// slot, and everything on its secondary bus sits in it; an SHPC drives a
// range of device numbers whose length depends on the current bus speed.
#include "hotplug/pci_regs.h"
#include "hotplug/shpc.h"

#include "cli/report.h"

namespace {

constexpr unsigned SITE_UNKNOWN_SPEED = 3213;

uint32_t slot_count_field(uint32_t reg, unsigned shift)
{
    return (reg >> shift) & SHPC_SLOT_COUNT_MASK;
}

} // namespace

int shpc_covers_device(ShpcInfo &shpc, uint16_t domain, uint8_t bus, uint8_t device)
{
    if (shpc.magic == PCIE_PORT_MAGIC)
        return domain == shpc.domain && bus == shpc.secondary_bus ? 1 : 0;

    uint32_t slots;
    switch (shpc.sec_bus_config & SHPC_SEC_BUS_SPEED_MASK) {
    case SHPC_SPEED_33_PCI: slots = slot_count_field(shpc.slots_available_1, 0); break;
    case SHPC_SPEED_66_PCI: slots = slot_count_field(shpc.slots_available_2, 0); break;
    case SHPC_SPEED_66_PCIX: slots = slot_count_field(shpc.slots_available_1, 8); break;
    case SHPC_SPEED_100_PCIX: slots = slot_count_field(shpc.slots_available_1, 16); break;
    case SHPC_SPEED_133_PCIX: slots = slot_count_field(shpc.slots_available_1, 24); break;
    default:
        report_fatal(SITE_UNKNOWN_SPEED);
        log_err("SHPC %s unknown Secondary Bus Configuration Register 0x%x\n", shpc.bus_id,
                shpc.sec_bus_config.get());
        return -1;
    }
    uint32_t first = slot_count_field(shpc.slot_config, SHPC_FIRST_DEVICE_SHIFT);
    shpc.first_device = static_cast<uint8_t>(first);
    shpc.slot_count = static_cast<uint8_t>(slots);
    return domain == shpc.domain && bus == shpc.secondary_bus && first <= device &&
                   device < first + slots
               ? 1
               : 0;
}
