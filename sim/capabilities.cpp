#include "capabilities.hpp"

#include <array>
#include <utility>

namespace capability {

namespace {

void put16(std::vector<std::uint8_t>& body, std::size_t cap_offset, std::uint16_t value)
{
    // body starts at capability offset 2
    body.at(cap_offset - 2) = static_cast<std::uint8_t>(value);
    body.at(cap_offset - 1) = static_cast<std::uint8_t>(value >> 8);
}

void put32(std::vector<std::uint8_t>& body, std::size_t cap_offset, std::uint32_t value)
{
    put16(body, cap_offset, static_cast<std::uint16_t>(value));
    put16(body, cap_offset + 2, static_cast<std::uint16_t>(value >> 16));
}

} // namespace

Capability power_management(std::uint16_t pmc, std::uint16_t pmcsr)
{
    Capability cap{power_management_id, std::nullopt, std::vector<std::uint8_t>(6)};
    put16(cap.body, 2, pmc);
    put16(cap.body, 4, pmcsr);
    return cap;
}

Capability shpc(std::uint32_t first_data_dword)
{
    Capability cap{shpc_id, std::nullopt, std::vector<std::uint8_t>(6)};
    put32(cap.body, 4, first_data_dword);
    return cap;
}

std::optional<unsigned> speed_code(std::string_view name)
{
    static constexpr std::array<std::pair<std::string_view, unsigned>, 5> names{{
        {"pci33", speed_pci33},
        {"pci66", speed_pci66},
        {"pcix66", speed_pcix66},
        {"pcix100", speed_pcix100},
        {"pcix133", speed_pcix133},
    }};
    for (const auto& [text, code] : names)
        if (text == name)
            return code;
    return std::nullopt;
}

std::map<std::uint8_t, std::uint32_t> shpc_registers(unsigned code, unsigned slots,
                                                     unsigned first_device)
{
    const std::uint32_t count = slots & 0x1f;
    std::uint32_t available1 = 0;
    std::uint32_t available2 = 0;
    switch (code) {
    case speed_pci33: available1 = count; break;
    case speed_pci66: available2 = count; break;
    case speed_pcix66: available1 = count << 8; break;
    case speed_pcix100: available1 = count << 16; break;
    case speed_pcix133: available1 = count << 24; break;
    default: break; // no field for an unknown mode
    }
    const std::uint32_t physical_slot = 1;
    return {
        {0, 0},
        {1, available1},
        {2, available2},
        {3, count | (first_device & 0x1f) << 8 | physical_slot << 16},
        {4, (code & 0x7) | 1u << 24},
    };
}

std::optional<unsigned> port_type(std::string_view name)
{
    static constexpr std::array<std::pair<std::string_view, unsigned>, 5> names{{
        {"endpoint", port_endpoint},
        {"legacy", port_legacy_endpoint},
        {"root", port_root},
        {"upstream", port_upstream},
        {"downstream", port_downstream},
    }};
    for (const auto& [text, type] : names)
        if (text == name)
            return type;
    return std::nullopt;
}

Capability pci_express(const PciExpressOptions& options)
{
    Capability cap{pci_express_id, std::nullopt, std::vector<std::uint8_t>(0x3c - 2)};
    const std::uint16_t flags = static_cast<std::uint16_t>(
        0x2 | (options.type & 0xf) << 4 | (options.slot ? 1u << 8 : 0u));
    put16(cap.body, 0x02, options.flags.value_or(flags));
    put32(cap.body, 0x04, options.devcap.value_or(0x00008000)); // role-based error reporting
    // 2.5 GT/s, x1, port number from the slot number
    put32(cap.body, 0x0c, options.lnkcap.value_or(0x00000011 | (options.physical_slot & 0xff) << 24));
    put16(cap.body, 0x12, 0x0011); // link status: 2.5 GT/s, x1
    std::uint32_t sltcap = 0;
    if (options.power_controller)
        sltcap |= 1u << 1 | 1u << 6; // power controller, hot-plug capable
    sltcap |= (options.physical_slot & 0x1fff) << 19;
    if (options.slot || options.sltcap)
        put32(cap.body, 0x14, options.sltcap.value_or(sltcap));
    return cap;
}

Capability plain(std::uint8_t id, unsigned length)
{
    return Capability{id, std::nullopt, std::vector<std::uint8_t>(length < 2 ? 0 : length - 2)};
}

} // namespace capability
