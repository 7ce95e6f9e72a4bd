// The records of the HBA information build: one labelled adapter's HbaInfo,
// and the zero-filled blocks the driver is handed.
#pragma once

#include <cstdint>

#include "hotplug/busid_tokens.h"
#include "hotplug/pci_access.h"
#include "hotplug/records.h"

// Fills *info for the adapter the busID word names: present in the
// snapshot, its revision read afresh, its power-management capability, the
// alternative power-management mark of the first alterpm.conf entry that
// names it (entries that did not parse take no part). Stores the entry
// (or null) in word.alterpm_entry and the function in word.found. 0, or -1
// (reported).
int build_hba_info(const PciSnap &snap, BusIdWord &word, HbaInfo *info);

// A zero-filled list with count set, its size in bytes stored through size
// when given; null (reported) when there is no memory.
HbaInfoList *alloc_hba_info_list(uint32_t count, uint32_t *size);

// A zero-filled controller table holding the controllers discovery found,
// in their order; null (reported) when there is no memory.
ShpcInfoTable *alloc_shpc_info_table(uint32_t count);
