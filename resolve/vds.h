// Volume-manager resolution: the physical disks behind a volume or a class,
// as the volume manager's query command names them, each resolved to its
// adapter's busID (relayed SCSI route, or the multipath route).
#pragma once

#include <memory>

#include "resolve/path_buffer.h"

// canonical_path: the volume's node, /dev/vdsdev/CLASS/dsk/VOLUME. Lines
// are labelled with operand. Returns the number added (0 or more) or -1.
int get_pci_by_vds(const char *operand, const char *canonical_path);

// All disks of the class class_name, labelled with it. Returns the number
// of lines added (0 or more) or -1.
int get_pci_by_guess_vds_class(const char *class_name);

// One disk, /dev/DISK_NAME, built in path_buffer. diag_fd: the open
// diagnostic device. Returns the number of lines added or -1.
int get_pci_by_vds_sub(int diag_fd, const char *operand, const char *disk_name,
                       PathBuffer &path_buffer);

// "/dev/" and name in buffer; null when it does not fit.
const char *build_absolute_dev_path(const char *name, PathBuffer &buffer);

// The class (last component two levels up) and the volume (last component)
// of a volume's path, as new strings. 0, or -1 (reported).
int split_vds_path(const char *path, std::unique_ptr<char[]> &class_out,
                   std::unique_ptr<char[]> &volume_out);
