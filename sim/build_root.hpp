#pragma once
// `slotag-sim build ROOT TOPOLOGY`: the simulated server's files.

#include <string>

// Throws on failure; ROOT must not exist or be an empty directory.
void build_root(const std::string& root, const std::string& topology_file);
