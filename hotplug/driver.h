// The hot-plug driver's interface: two requests on /dev/slotag, each given
// the 32-bit address of a block of records.
#pragma once

#include <cstdint>
#include <linux/ioctl.h>

#include "hotplug/records.h"

constexpr const char *SLOTAG_DEVICE = "/dev/slotag";
// The site number of a failed open of SLOTAG_DEVICE, which slotag-show
// foretells when the node is missing.
constexpr unsigned DRIVER_OPEN_SITE = 3671;

// Read-write requests of type 0xFE whose argument is a 32-bit address.
constexpr unsigned long SLOTAG_IOC_SET_HBA = 0xC004FE00;   // the outside HbaInfoList
constexpr unsigned long SLOTAG_IOC_SET_SHPC = 0xC004FE01;  // the ShpcInfoTable
static_assert(SLOTAG_IOC_SET_HBA == _IOWR(0xFE, 0, uint32_t));
static_assert(SLOTAG_IOC_SET_SHPC == _IOWR(0xFE, 1, uint32_t));

// Hands the outside list, then the controller table, to the driver. 0, or
// -1 (reported, with the records the driver rejected logged).
int pass_hba_info_to_driver(ShpcInfoTable *table, HbaInfoList *list);
