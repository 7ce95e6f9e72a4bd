// get_pci_by_sd: the SCSI route. Asks the kernel for the PCI name of a
// disk's SCSI host, on the disk node itself or relayed through the volume
// manager's diagnostic device, and appends the resulting table line.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lib/little_endian.h"

// The SCSI ioctl that names the PCI device of a disk's host; Linux copies
// at most SCSI_PCI_NAME_SIZE bytes of the name and adds no NUL.
constexpr unsigned long SCSI_IOCTL_GET_PCI = 0x5387;
constexpr size_t SCSI_PCI_NAME_SIZE = 20;

// The diagnostic device of the volume manager and its relay request.
constexpr const char *VDS_DIAG_DEVICE = "/dev/vdsdev/_diag";
constexpr unsigned long VDS_DIAG_REQUEST = 0x737800;

// The relay request as the volume manager's driver reads it: the layout of
// a 32-bit little-endian program, so `result` is a 32-bit address in the
// caller's memory and every field is little-endian on any host.
struct VdsDiagRequest {
    le32 dev_low;   // low half of the disk's device number
    le32 dev_high;  // high half
    le32 command;   // the SCSI ioctl to perform on the disk
    le32 result;    // address of the SCSI_PCI_NAME_SIZE-byte answer
};
static_assert(sizeof(VdsDiagRequest) == 16);
static_assert(offsetof(VdsDiagRequest, dev_low) == 0);
static_assert(offsetof(VdsDiagRequest, dev_high) == 4);
static_assert(offsetof(VdsDiagRequest, command) == 8);
static_assert(offsetof(VdsDiagRequest, result) == 12);

// via_vds 0: ask on device_node (diag_fd and the device number unused).
// via_vds 1: relay through diag_fd, which stays open, for the disk with
// that device number. The line is "operand,device_node BUSID". Returns 1,
// or -1 (reported).
int get_pci_by_sd(int via_vds, const char *operand, const char *device_node, int diag_fd,
                  uint32_t dev_low, uint32_t dev_high);
