#pragma once
// The files of the topology's storage, laid out as the kernel, the
// multipath driver and the volume manager lay them out: device nodes and
// by-id links in ROOT/dev, the block and SCSI host entries of sysfs, the
// multipath tree, "vdsdev" in ROOT/proc-devices, the query command in
// ROOT/sbin, and the state file the preloaded library plays them from.

#include "topology.hpp"

#include <string>

// Throws on failure. Runs after the PCI tree and /proc/devices are written.
void write_storage(const std::string& root, const Topology& topology);

// A block or character node, its directories made first. Throws.
void make_node(const std::string& path, bool block, unsigned major, unsigned minor);
