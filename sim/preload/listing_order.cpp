// The one listing order the simulated directories use.

#include "preload/module.hpp"

#include <algorithm>

namespace preload {

// The names of `first` that exist, in that order, then the rest sorted. A
// binary search per name keeps a listing of thousands of functions cheap.
std::vector<std::string> listed_first(const std::vector<std::string>& first,
                                      std::vector<std::string> names)
{
    std::sort(names.begin(), names.end());
    std::vector<bool> taken(names.size(), false);
    std::vector<std::string> ordered;
    ordered.reserve(names.size());
    for (const auto& name : first) {
        auto it = std::lower_bound(names.begin(), names.end(), name);
        for (; it != names.end() && *it == name; ++it) {
            size_t i = static_cast<size_t>(it - names.begin());
            if (!taken[i]) {
                taken[i] = true;
                ordered.push_back(name);
                break;
            }
        }
    }
    for (size_t i = 0; i < names.size(); i++)
        if (!taken[i])
            ordered.push_back(std::move(names[i]));
    return ordered;
}

} // namespace preload
