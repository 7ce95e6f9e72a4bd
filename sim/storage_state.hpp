#pragma once
// The state file `storage`: what the preloaded library needs to know of the
// topology's disks, volume-manager nodes and multipath directories.
//   disk NAME MAJOR MINOR PARTITIONS PCI-NAME|- OPEN-ERRNO BUSY IOCTL-ERRNO RELAY-ERRNO
//   volume PATH
//   diag OPEN-ERRNO BUSY          (no line: no diagnostic device)
//   order DIRECTORY NAME...        the first entries of a directory listing
// An errno of 0 means none.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace state {

inline constexpr const char* storage_file = "storage";
// Requests made of the volume manager's diagnostic device, one a line.
inline constexpr const char* vds_diag_log = "vds-diag";

struct StorageDisk {
    std::string name;
    unsigned major = 0;
    unsigned minor = 0;
    unsigned partitions = 0;
    std::string pci_name; // empty: no SCSI host
    int open_error = 0;
    unsigned open_busy = 0;
    int ioctl_error = 0;
    int relay_error = 0;
};

struct StorageDiag {
    int open_error = 0;
    unsigned open_busy = 0;
};

struct ListingOrder {
    std::string directory; // absolute, as the program opens it
    std::vector<std::string> first;
};

struct StorageState {
    std::vector<StorageDisk> disks;
    std::vector<std::string> volume_nodes;
    std::optional<StorageDiag> diag;
    std::vector<ListingOrder> orders;
};

std::string format_storage(const StorageState& storage);
StorageState parse_storage(std::string_view text);

} // namespace state
