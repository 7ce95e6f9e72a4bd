#pragma once
// The configuration space image of a function: header, capability list and
// the raw writes of the topology, little-endian, 256 or 4096 bytes.

#include "topology.hpp"

#include <cstdint>
#include <vector>

struct ConfigImage {
    std::vector<std::uint8_t> bytes;
    std::vector<std::uint8_t> capability_offsets; // in the order of desc.capabilities
};

// Throws std::runtime_error when the capabilities do not fit or overlap.
ConfigImage build_config_space(const PciFunctionDesc& desc);
