// The multipath driver's device directories, /sys/devices/kvpx/kvphN,
// listed with the entries the topology declares first, in its order, then
// the others by name: the lines the tool adds follow this order.

#include "preload/module.hpp"
#include "preload/storage.hpp"

#include <utility>

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
        return listed_first(order_of(path)->first, std::move(names));
    }
};

} // namespace

Module& multipath_directories()
{
    static MultipathDirectories module;
    return module;
}

} // namespace preload
