// What the server's disks and volumes carry, for the replacement report:
// each SCSI disk with the adapters of its paths (as slotag -a resolves
// it), its partitions and the devices built on them, where they are mounted
// and which are swap; each volume-manager volume with its paths.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

// A disk, one of its partitions, or a device built on either.
struct BlockUse {
    std::string name;     // sda, sda1, dm-0, md0
    std::string on;       // a holder: the disk or partition it is built on
    std::string dm_name;  // a device-mapper holder: its dm/name
    dev_t dev = 0;
    std::vector<std::string> mounts;
    bool swap = false;
};

struct DiskUse {
    std::string name;
    std::string multipath;              // its multipath device, empty without
    std::vector<std::string> adapters;  // the busID of each path
    std::vector<BlockUse> blocks;       // the disk, its partitions, their holders
};

struct VolumeUse {
    std::string path;                   // /dev/vdsdev/CLASS/dsk/VOLUME
    std::vector<std::string> adapters;  // the busID of each disk (each path)
    BlockUse use;                       // its mounts and swap
};

struct StorageUse {
    std::vector<DiskUse> disks;
    std::vector<VolumeUse> volumes;
};

// Reads /sys/block, /dev/vdsdev, /proc/self/mountinfo and /proc/swaps,
// quietly: a disk or volume that does not resolve is left out.
StorageUse read_storage_use();
