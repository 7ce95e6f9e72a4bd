// The add mode: turns each operand (a device path or a volume-manager class
// name) into new entries of the label table.
#pragma once

// Works on the count operands of the command line, in order; returns the
// number of entries added (at least 1), or -1 when nothing was added.
int parse_hba_addr_conf_add(int count, char **operands);

// What every device path's resolution needs first: whether the multipath
// driver is present, and the volume manager's major numbers. 0, or -1
// (reported). Once per run, before the first operand.
int prepare_device_resolution();

// One device path; returns the number of entries added (0 or more) or -1.
int parse_hba_addr_conf_add_sub(const char *device_path);

// Cuts a canonical node at its first digit, so a partition names its whole
// disk (/dev/sdb1 -> /dev/sdb); a volume-manager path is left whole.
void cut_partition(char *path);
