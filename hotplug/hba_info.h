// The HBA information build: from the label table and one PCI snapshot to
// the records the driver is given, the controller table (each controller
// with the list of labelled adapters in its slots) and the list of labelled
// adapters outside every controller's slots.
#pragma once

#include <cstdint>

#include "hotplug/records.h"

// Fills *table and *list (blocks that live until the process ends) and
// returns 0; -1 (reported) with null outputs.
int build_shpc_hba_info(ShpcInfoTable **table, HbaInfoList **list);

// A zero-filled list with count set, its size in bytes stored through size
// when given; null (reported) when there is no memory.
HbaInfoList *alloc_hba_info_list(uint32_t count, uint32_t *size);
