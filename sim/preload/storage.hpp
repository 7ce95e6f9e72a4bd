#pragma once
// What the storage modules share: the topology's disks as the state file
// lists them, the stand-in descriptors of simulated nodes, and the answer
// of SCSI_IOCTL_GET_PCI.

#include "storage_state.hpp"

#include <cstdint>
#include <string>
#include <string_view>

namespace preload {

inline constexpr std::uint32_t scsi_get_pci = 0x5387;
// Linux copies at most this much of the host's PCI name, with no NUL.
inline constexpr std::size_t scsi_pci_name_size = 20;

// Read from the state directory once per process.
const state::StorageState& storage();

// The disk a node path names, its partitions included; null for others.
const state::StorageDisk* disk_at(std::string_view path);
// The disk whose node or partition has this device number; null if none.
const state::StorageDisk* disk_numbered(std::uint64_t dev);

// Whether an open of key goes ahead: 0, or the errno it fails with (the
// configured one, or EAGAIN for the first `busy` attempts of the process).
int open_gate(const std::string& key, int open_error, unsigned busy);

// A descriptor for a simulated node: /dev/null, opened with the program's
// access mode and descriptor flags. -1 with errno when that fails.
int stand_in(int flags);

// Writes the host's PCI name as Linux does (at most 20 bytes, no NUL) at
// address in the program's memory: 0, or the errno to fail with.
int answer_pci_name(const state::StorageDisk& disk, std::uintptr_t address);

} // namespace preload
