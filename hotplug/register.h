// Registration of the label table with the hot-plug driver behind /dev/slotag.
#pragma once

// Reads alterpm.conf, builds the driver records from the label table and a
// PCI snapshot, and hands them to the driver. Returns 0 or -1 (reported).
int register_hba_info();
