// /sys/bus/pci/devices listed in the topology's order: the tool's results
// depend on the order readdir gives, which a real file system does not let
// a test choose.

#include "preload/module.hpp"
#include "preload/state.hpp"
#include "state_files.hpp"

#include <utility>

namespace preload {

namespace {

class PciDevicesDirectory final : public Module {
public:
    bool orders_directory(std::string_view path) const override
    {
        return path == "/sys/bus/pci/devices";
    }

    // Entries named in pci-order come first, in that order; anything else a
    // test put in the directory follows in name order.
    std::vector<std::string> order_directory(std::string_view /*path*/,
                                             std::vector<std::string> names) override
    {
        return listed_first(state::content_lines(read_state(state::pci_order_file).value_or("")),
                            std::move(names));
    }
};

} // namespace

Module& pci_devices_directory()
{
    static PciDevicesDirectory module;
    return module;
}

} // namespace preload
