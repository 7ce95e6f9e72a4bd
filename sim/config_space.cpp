#include "config_space.hpp"

#include <stdexcept>

namespace {

constexpr unsigned capability_area_start = 0x40;
constexpr unsigned capability_area_end = 0x100;

void put8(std::vector<std::uint8_t>& b, unsigned off, std::uint32_t v)
{
    b.at(off) = static_cast<std::uint8_t>(v);
}
void put16(std::vector<std::uint8_t>& b, unsigned off, std::uint32_t v)
{
    put8(b, off, v);
    put8(b, off + 1, v >> 8);
}

[[noreturn]] void layout_error(const PciFunctionDesc& desc, const std::string& what)
{
    throw std::runtime_error("line " + std::to_string(desc.line) + ": " + desc.address.name() +
                             ": " + what);
}

// Capabilities go where the topology put them, the others one after the
// other from 0x40, each on a DWORD boundary.
std::vector<std::uint8_t> place_capabilities(const PciFunctionDesc& desc)
{
    std::vector<std::uint8_t> offsets;
    std::vector<bool> used(capability_area_end, false);
    unsigned cursor = capability_area_start;
    for (const auto& cap : desc.capabilities) {
        const unsigned length = static_cast<unsigned>(cap.body.size()) + 2;
        unsigned at = cap.offset ? *cap.offset : (cursor + 3) & ~3u;
        if (at + length > capability_area_end)
            layout_error(desc, "capabilities do not fit below 0x100");
        for (unsigned i = at; i < at + length; ++i) {
            if (used[i])
                layout_error(desc, "capability at " + std::to_string(at) + " overlaps another");
            used[i] = true;
        }
        offsets.push_back(static_cast<std::uint8_t>(at));
        cursor = at + length;
    }
    return offsets;
}

void write_header(const PciFunctionDesc& desc, bool has_capabilities, std::vector<std::uint8_t>& b)
{
    put16(b, 0x00, desc.vendor);
    put16(b, 0x02, desc.device);
    put16(b, 0x04, desc.command);
    put16(b, 0x06, desc.status.value_or(has_capabilities ? 0x0010 : 0x0000));
    put8(b, 0x08, desc.revision);
    put8(b, 0x09, desc.class_code);       // programming interface
    put8(b, 0x0a, desc.class_code >> 8);  // subclass
    put8(b, 0x0b, desc.class_code >> 16); // base class
    put8(b, 0x0e, desc.header_type | (desc.multi_function ? 0x80 : 0x00));
    if (desc.is_bridge()) {
        put8(b, 0x18, desc.primary_bus);
        put8(b, 0x19, desc.secondary_bus);
        put8(b, 0x1a, desc.subordinate_bus);
        // Forwarding windows closed (base above limit), as firmware leaves
        // a bridge with nothing behind it.
        put8(b, 0x1c, 0xf0);
        put16(b, 0x20, 0xfff0);
        put16(b, 0x24, 0xfff1);
        put16(b, 0x26, 0x0001);
    } else {
        put16(b, 0x2c, desc.subsystem_vendor);
        put16(b, 0x2e, desc.subsystem_device);
    }
}

} // namespace

ConfigImage build_config_space(const PciFunctionDesc& desc)
{
    ConfigImage image;
    image.bytes.assign(desc.config_size, 0);
    image.capability_offsets = place_capabilities(desc);
    write_header(desc, !desc.capabilities.empty(), image.bytes);
    auto& b = image.bytes;
    put8(b, 0x34, image.capability_offsets.empty() ? 0 : image.capability_offsets.front());
    for (std::size_t i = 0; i < desc.capabilities.size(); ++i) {
        const auto& cap = desc.capabilities[i];
        const unsigned at = image.capability_offsets[i];
        const unsigned next = i + 1 < desc.capabilities.size() ? image.capability_offsets[i + 1] : 0;
        put8(b, at, cap.id);
        put8(b, at + 1, next);
        for (std::size_t k = 0; k < cap.body.size(); ++k)
            put8(b, at + 2 + static_cast<unsigned>(k), cap.body[k]);
    }
    for (const auto& poke : desc.pokes) {
        if (poke.offset + poke.width > b.size())
            layout_error(desc, "raw write beyond the configuration space");
        for (unsigned k = 0; k < poke.width; ++k)
            put8(b, poke.offset + k, poke.value >> 8 * k);
    }
    return image;
}
