#pragma once
// The storage side of a topology: SCSI hosts and disks, the multipath
// driver's tree, the volume manager (its nodes, its diagnostic device and
// its query command). The statements are described in README.md.

#include <optional>
#include <string>
#include <vector>

struct ScsiHostDesc {
    unsigned number = 0;
    // What SCSI_IOCTL_GET_PCI answers for the host's disks: normally a
    // function of the topology, but any text (a name too long for the
    // answer, say).
    std::string pci_name;
};

struct DiskDesc {
    std::string name; // under /dev
    unsigned major = 8;
    unsigned minor = 0;
    unsigned partitions = 0; // NAME1..NAMEk, minors minor+1..minor+k
    std::optional<unsigned> host;
    std::vector<std::string> ids;  // /dev/disk/by-id names
    int open_error = 0;            // every open fails with it
    unsigned open_busy = 0;        // opens answering EAGAIN first, per process
    int ioctl_error = 0;           // SCSI_IOCTL_GET_PCI fails with it
    int relay_error = 0;           // the diagnostic device's relay fails with it
    std::optional<std::string> sysfs_link; // /sys/block/NAME/device, as given
};

// One entry of a multipath device directory.
struct KvphEntry {
    enum class Kind { host_file, empty_file, directory } kind = Kind::host_file;
    std::string name;
    std::string host; // the file's text before its newline
};

struct KvphDesc {
    std::string name;                 // kvphN
    std::vector<std::string> disks;   // their /sys/block/DISK/device link here
    bool bare_links = false;          // ... ending at the directory itself
    std::vector<KvphEntry> entries;   // listed first, in this order
};

struct VolumeDesc {
    std::string vds_class;
    std::string name;
    unsigned minor = 0;
    bool character = false;
};

struct VdsDesc {
    unsigned major = 247;
    bool in_character = true; // "vdsdev" lines in /proc/devices
    bool in_block = true;
    bool diag_present = true;
    int diag_open_error = 0;
    unsigned diag_open_busy = 0;
    std::vector<VolumeDesc> volumes;
};

// What /usr/sbin/vdsstat does for one argument vector.
struct QueryStep {
    enum class Kind { stdout_line, stderr_line, sleep } kind = Kind::stdout_line;
    std::string text; // the line, or the seconds to sleep
};

struct QueryCase {
    std::vector<std::string> args; // after argv[0]
    std::vector<QueryStep> steps;
    int exit_code = 0;
    std::optional<std::string> signal; // a kill(1) signal name, ends it instead
};

// A block device built on disks or partitions (device-mapper, md): its
// /sys/block entry and the holders links of what it is built on.
struct HolderDesc {
    std::string name;                // dm-N, mdN, ...
    unsigned major = 0;
    unsigned minor = 0;
    std::string dm_name;             // dm/name for a dm-N
    std::vector<std::string> of;     // disks and partitions, by name
};

struct MountDesc {
    std::string device;              // a disk, partition or holder
    std::string path;
};

struct StorageDesc {
    std::vector<ScsiHostDesc> hosts;
    std::vector<DiskDesc> disks;
    bool kvpx = false; // /sys/devices/kvpx, also without a device in it
    std::vector<KvphDesc> kvph;
    std::optional<VdsDesc> vds;
    // /usr/sbin/vdsstat exists once the topology scripts a case.
    std::optional<std::vector<QueryCase>> vdsstat;
    std::vector<HolderDesc> holders;
    std::vector<MountDesc> mounts;    // ROOT/proc-mountinfo
    std::vector<std::string> swaps;   // ROOT/proc-swaps
};
