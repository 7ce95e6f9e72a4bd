// The multipath driver's device directories, /sys/devices/kvpx/kvphN,
// listed with the entries the topology declares first, in its order, then
// the others by name: the lines the tool adds follow this order.

#include "preload/module.hpp"
#include "preload/storage.hpp"

#include <algorithm>

namespace preload {

namespace {

const state::ListingOrder* order_of(std::string_view path)
{
    for (const auto& order : storage().orders)
        if (order.directory == path)
            return &order;
    return nullptr;
}

class MultipathDirectories final : public Module {
public:
    bool orders_directory(std::string_view path) const override
    {
        return path.starts_with("/sys/devices/kvpx/") && order_of(path);
    }

    std::vector<std::string> order_directory(std::string_view path,
                                             std::vector<std::string> names) override
    {
        std::sort(names.begin(), names.end());
        std::vector<std::string> ordered;
        for (const auto& name : order_of(path)->first) {
            auto it = std::find(names.begin(), names.end(), name);
            if (it != names.end()) {
                ordered.push_back(name);
                names.erase(it);
            }
        }
        ordered.insert(ordered.end(), names.begin(), names.end());
        return ordered;
    }
};

} // namespace

Module& multipath_directories()
{
    static MultipathDirectories module;
    return module;
}

} // namespace preload
