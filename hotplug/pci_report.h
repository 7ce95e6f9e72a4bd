// The ERR log line that names a PCI function after a failed configuration
// access, with the access layer's status code.
#pragma once

#include <cstdint>

#include "hotplug/pci_access.h"

void log_pci_device(const PciFunction &f, uint32_t code);
