#include "sysfs_tree.hpp"

#include "config_space.hpp"
#include "files.hpp"

#include <cstdio>

namespace {

std::string hex_value(unsigned digits, std::uint32_t value)
{
    char text[32];
    std::snprintf(text, sizeof text, "0x%0*x\n", static_cast<int>(digits), static_cast<unsigned>(value));
    return text;
}

// The bridge whose secondary bus the function sits on, if the topology has one.
const PciFunctionDesc* parent_bridge(const Topology& topology, const PciFunctionDesc& desc)
{
    for (const auto& other : topology.functions)
        if (&other != &desc && other.is_bridge() && other.address.domain == desc.address.domain &&
            other.secondary_bus == desc.address.bus && other.secondary_bus != other.address.bus)
            return &other;
    return nullptr;
}

} // namespace

std::string device_path(const Topology& topology, const PciFunctionDesc& desc)
{
    std::string path = desc.address.name();
    const PciFunctionDesc* top = &desc;
    // A bus loop in a hand-written topology ends at the depth limit.
    for (int depth = 0; depth < 32; ++depth) {
        const PciFunctionDesc* parent = parent_bridge(topology, *top);
        if (!parent)
            break;
        path = parent->address.name() + "/" + path;
        top = parent;
    }
    char root[32];
    std::snprintf(root, sizeof root, "pci%04x:%02x", unsigned{top->address.domain},
                  unsigned{top->address.bus});
    return std::string(root) + "/" + path;
}

namespace {

std::string resource_lines(unsigned count)
{
    std::string text;
    for (unsigned i = 0; i < count; ++i)
        text += "0x0000000000000000 0x0000000000000000 0x0000000000000000\n";
    return text;
}

std::string modalias(const PciFunctionDesc& desc)
{
    char text[96];
    std::snprintf(text, sizeof text, "pci:v%08Xd%08Xsv%08Xsd%08Xbc%02Xsc%02Xi%02X\n",
                  unsigned{desc.vendor}, unsigned{desc.device}, unsigned{desc.subsystem_vendor},
                  unsigned{desc.subsystem_device}, (desc.class_code >> 16) & 0xff,
                  (desc.class_code >> 8) & 0xff, desc.class_code & 0xff);
    return text;
}

void write_function(const std::string& dir, const PciFunctionDesc& desc, const ConfigImage& image)
{
    make_dirs(dir);
    write_file(dir + "/config", image.bytes, 0644);
    write_file(dir + "/vendor", hex_value(4, desc.vendor), 0444);
    write_file(dir + "/device", hex_value(4, desc.device), 0444);
    write_file(dir + "/subsystem_vendor", hex_value(4, desc.subsystem_vendor), 0444);
    write_file(dir + "/subsystem_device", hex_value(4, desc.subsystem_device), 0444);
    write_file(dir + "/class", hex_value(6, desc.class_code), 0444);
    write_file(dir + "/revision", hex_value(2, desc.revision), 0444);
    write_file(dir + "/irq", "0\n", 0444);
    write_file(dir + "/enable", "1\n", 0644);
    write_file(dir + "/numa_node", "-1\n", 0444);
    write_file(dir + "/modalias", modalias(desc), 0444);
    // six BARs, the ROM, and the bridge windows, as the kernel lists them
    write_file(dir + "/resource", resource_lines(desc.is_bridge() ? 17 : 13), 0444);
}

} // namespace

std::vector<state::ShpcWindow> write_sysfs(const std::string& sys, const Topology& topology)
{
    for (const char* dir : {"/bus/pci/devices", "/bus/pci/drivers", "/bus/pci/slots", "/devices",
                            "/block", "/class/scsi_host"})
        make_dirs(sys + dir);
    std::vector<state::ShpcWindow> windows;
    for (const auto& desc : topology.functions) {
        ConfigImage image = build_config_space(desc);
        const std::string path = device_path(topology, desc);
        write_function(sys + "/devices/" + path, desc, image);
        make_symlink("../../../devices/" + path, sys + "/bus/pci/devices/" + desc.address.name());
        if (desc.shpc_capability)
            windows.push_back({desc.address.name(), image.capability_offsets[*desc.shpc_capability],
                               desc.shpc_registers});
    }
    for (const auto& name : topology.extra_entries)
        make_dirs(sys + "/bus/pci/devices/" + name);
    return windows;
}
