#pragma once
// What uses the simulated disks: device-mapper and md devices built on them
// (holder), mounted file systems (mount) and swap (swap), laid out as the
// kernel shows them in /sys/block and as ROOT/proc-mountinfo and
// ROOT/proc-swaps, which the preloaded library serves for
// /proc/self/mountinfo and /proc/swaps.

#include "storage_desc.hpp"

#include <string>
#include <vector>

// holder, mount or swap; the devices named must be declared before. Throws
// ParseError.
void block_use_statement(const std::vector<std::string>& words, StorageDesc& storage);

// Throws on failure. Both proc tables are always written, empty when the
// topology mounts nothing, so the host's own never show through.
void write_block_use(const std::string& root, const StorageDesc& storage);
