// The multipath route: from a disk's sysfs link to its multipath device in
// /sys/devices/kvpx, and from each path's SCSI host to the busID of the
// adapter, one table line per path. Also the switch between the routes.
#pragma once

#include <cstddef>

// 2 when the multipath driver's sysfs tree exists, else 1; set once by the
// add command before the first operand.
extern int multipath_mode;
constexpr int MULTIPATH_ABSENT = 1;
constexpr int MULTIPATH_PRESENT = 2;
constexpr const char *MULTIPATH_SYSFS = "/sys/devices/kvpx";

// Lines "operand,device_node,kvpath BUSID", one per scsi_host_ entry of the
// disk's multipath device. Returns the number added (0 for none) or -1.
int get_pci_by_kvpath_sysfs(const char *operand, const char *device_node);

// Reads the SCSI host number from the entry file at path and copies the
// PCI name of that host into busid_out (busid_size bytes). 0 or -1.
int query_from_paramf(const char *path, char *busid_out, size_t busid_size);
