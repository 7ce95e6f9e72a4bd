// The major numbers of the volume manager's driver ("vdsdev" in
// /proc/devices), which tell a volume-manager device from a disk.
#pragma once

#include <cstdint>

#include "table/line_reader.h"

constexpr uint32_t VDS_MAJOR_SLOTS = 256;

struct VdsMajorTable {
    uint32_t char_count;
    uint32_t char_majors[VDS_MAJOR_SLOTS];
    uint32_t block_count;
    uint32_t block_majors[VDS_MAJOR_SLOTS];
};

// Filled once per run by the add command, before the first operand.
extern VdsMajorTable vds_major_table;

// Reads a file in the format of /proc/devices into vds_major_table.
// 0, or -1 with *status (the line reader's) and errno set.
int read_vds_majors(const char *path, LineReaderStatus *status);

// End callback of that read: consumes the collected tokens (the user record
// is a TokenCollector) and records every "vdsdev" line. Returns 1.
int parse_proc_devices(void *user);

void add_major(int is_char, int is_block, uint32_t major);
// 1 when major is in the character or the block list, else 0.
int is_vds_major(uint32_t major);

// The major number of a 64-bit device number.
uint32_t device_major(uint64_t dev);
