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
const PciFunctionSpec* parent_bridge(const Topology& topology, const PciFunctionSpec& spec)
{
    for (const auto& other : topology.functions)
        if (&other != &spec && other.is_bridge() && other.address.domain == spec.address.domain &&
            other.secondary_bus == spec.address.bus && other.secondary_bus != other.address.bus)
            return &other;
    return nullptr;
}

} // namespace

std::string device_path(const Topology& topology, const PciFunctionSpec& spec)
{
    std::string path = spec.address.name();
    const PciFunctionSpec* top = &spec;
    // A bus loop in a hand-written topology ends at the depth limit.
    for (int depth = 0; depth < 32; ++depth) {
        const PciFunctionSpec* parent = parent_bridge(topology, *top);
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

std::string modalias(const PciFunctionSpec& spec)
{
    char text[96];
    std::snprintf(text, sizeof text, "pci:v%08Xd%08Xsv%08Xsd%08Xbc%02Xsc%02Xi%02X\n",
                  unsigned{spec.vendor}, unsigned{spec.device}, unsigned{spec.subsystem_vendor},
                  unsigned{spec.subsystem_device}, (spec.class_code >> 16) & 0xff,
                  (spec.class_code >> 8) & 0xff, spec.class_code & 0xff);
    return text;
}

void write_function(const std::string& dir, const PciFunctionSpec& spec, const ConfigImage& image)
{
    make_dirs(dir);
    write_file(dir + "/config", image.bytes, 0644);
    write_file(dir + "/vendor", hex_value(4, spec.vendor), 0444);
    write_file(dir + "/device", hex_value(4, spec.device), 0444);
    write_file(dir + "/subsystem_vendor", hex_value(4, spec.subsystem_vendor), 0444);
    write_file(dir + "/subsystem_device", hex_value(4, spec.subsystem_device), 0444);
    write_file(dir + "/class", hex_value(6, spec.class_code), 0444);
    write_file(dir + "/revision", hex_value(2, spec.revision), 0444);
    write_file(dir + "/irq", "0\n", 0444);
    write_file(dir + "/enable", "1\n", 0644);
    write_file(dir + "/numa_node", "-1\n", 0444);
    write_file(dir + "/modalias", modalias(spec), 0444);
    // six BARs, the ROM, and the bridge windows, as the kernel lists them
    write_file(dir + "/resource", resource_lines(spec.is_bridge() ? 17 : 13), 0444);
}

} // namespace

std::vector<state::ShpcWindow> write_sysfs(const std::string& sys, const Topology& topology)
{
    for (const char* dir : {"/bus/pci/devices", "/bus/pci/drivers", "/bus/pci/slots", "/devices",
                            "/block", "/class/scsi_host"})
        make_dirs(sys + dir);
    std::vector<state::ShpcWindow> windows;
    for (const auto& spec : topology.functions) {
        ConfigImage image = build_config_space(spec);
        const std::string path = device_path(topology, spec);
        write_function(sys + "/devices/" + path, spec, image);
        make_symlink("../../../devices/" + path, sys + "/bus/pci/devices/" + spec.address.name());
        if (spec.shpc_capability)
            windows.push_back({spec.address.name(), image.capability_offsets[*spec.shpc_capability],
                               spec.shpc_registers});
    }
    for (const auto& name : topology.extra_entries)
        make_dirs(sys + "/bus/pci/devices/" + name);
    return windows;
}
