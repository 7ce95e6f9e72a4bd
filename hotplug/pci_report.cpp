#include "hotplug/pci_report.h"

#include "cli/core/report.h"

void log_pci_device(const PciFunction &f, uint32_t code)
{
    log_err("%04x:%02x:%02x.%d(%x)\n", f.domain, f.bus, f.device, f.function, code);
}
