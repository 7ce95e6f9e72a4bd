// The HBA information build: from the label table and one PCI snapshot to
// the records the driver is given, the controller table (each controller
// with the list of labelled adapters in its slots) and the list of labelled
// adapters outside every controller's slots.
#pragma once

#include <cstdint>

#include "hotplug/records.h"

struct RegistrationPreview;

// Fills *table and *list (blocks that live until the process ends) and
// returns 0; -1 (reported) with null outputs.
int build_shpc_hba_info(ShpcInfoTable **table, HbaInfoList **list);

// The same build for a preview: every problem gathered into it, the records
// of the others and the snapshot handed over. 0, or -1 when the build
// stopped (its messages still to be gathered by the caller).
int build_shpc_hba_info_preview(RegistrationPreview &preview);

// A zero-filled list with count set, its size in bytes stored through size
// when given; null (reported) when there is no memory.
HbaInfoList *alloc_hba_info_list(uint32_t count, uint32_t *size);
