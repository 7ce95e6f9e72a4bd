#pragma once
// The sysfs view of the topology's PCI functions, laid out as the kernel
// does: device directories under /sys/devices/pciDDDD:BB nested below their
// bridges, and /sys/bus/pci/devices holding a link to each.

#include "topology.hpp"

#include <string>

// Writes under sys (ROOT/sys) and returns the SHPC register files of the
// bridges, for the state directory.
std::vector<state::ShpcWindow> write_sysfs(const std::string& sys, const Topology& topology);

// "pci0000:00/0000:00:1e.0/0000:07:01.0": where a function's directory lies
// below /sys/devices.
std::string device_path(const Topology& topology, const PciFunctionDesc& desc);
