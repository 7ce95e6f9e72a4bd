#pragma once
// The standard capability structures as the PCI, SHPC and PCI Express
// standards lay them out, and the SHPC register file behind the window.

#include "topology.hpp"

#include <cstdint>
#include <map>
#include <optional>

namespace capability {

inline constexpr std::uint8_t power_management_id = 0x01;
inline constexpr std::uint8_t shpc_id = 0x0C;
inline constexpr std::uint8_t pci_express_id = 0x10;

// Power management: PMC at +2 (version 3 unless given), PMCSR at +4.
Capability power_management(std::uint16_t pmc, std::uint16_t pmcsr);

// SHPC: DWORD Select at +2, pending bits at +3, DWORD Data at +4.
Capability shpc(std::uint32_t first_data_dword);

// Speed/mode codes of the Secondary Bus Configuration register, bits 2:0.
inline constexpr unsigned speed_pci33 = 0, speed_pci66 = 1, speed_pcix66 = 2,
                          speed_pcix100 = 3, speed_pcix133 = 4;
std::optional<unsigned> speed_code(std::string_view name);
// The registers of a controller running at speed code with that many slots
// from first_device: Slots Available I/II count the slots in the field of
// that speed, Slot Configuration holds the count and the first device
// number, Secondary Bus Configuration the code (programming interface 1).
std::map<std::uint8_t, std::uint32_t> shpc_registers(unsigned code, unsigned slots,
                                                     unsigned first_device);

inline constexpr unsigned port_endpoint = 0, port_legacy_endpoint = 1, port_root = 4,
                          port_upstream = 5, port_downstream = 6;
std::optional<unsigned> port_type(std::string_view name);

struct PciExpressOptions {
    unsigned type = port_endpoint;
    bool slot = false;
    bool power_controller = false;
    unsigned physical_slot = 0;
    std::optional<std::uint16_t> flags;   // PCI Express Capabilities register
    std::optional<std::uint32_t> devcap;  // Device Capabilities
    std::optional<std::uint32_t> lnkcap;  // Link Capabilities
    std::optional<std::uint32_t> sltcap;  // Slot Capabilities
};
// Version 2 structure, 0x3C bytes: capabilities register at +2 (type in
// bits 7:4, slot implemented bit 8), Slot Capabilities at +0x14.
Capability pci_express(const PciExpressOptions& options);

// Any other capability: the ID and length bytes of zeros.
Capability plain(std::uint8_t id, unsigned length);

} // namespace capability
