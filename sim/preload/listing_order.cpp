// The one listing order the simulated directories use.

#include "preload/module.hpp"

#include <algorithm>

namespace preload {

std::vector<std::string> listed_first(const std::vector<std::string>& first,
                                      std::vector<std::string> names)
{
    std::sort(names.begin(), names.end());
    std::vector<std::string> ordered;
    for (const auto& name : first) {
        auto it = std::find(names.begin(), names.end(), name);
        if (it != names.end()) {
            ordered.push_back(name);
            names.erase(it);
        }
    }
    ordered.insert(ordered.end(), names.begin(), names.end());
    return ordered;
}

} // namespace preload
