// The add mode: turns each operand (a device path or a volume-manager class
// name) into new entries of the label table.
#pragma once

// Works on argv[optind..argc-1]; returns the number of entries added (at
// least 1), or -1 when nothing was added.
int parse_hba_addr_conf_add(int argc, char **argv);
