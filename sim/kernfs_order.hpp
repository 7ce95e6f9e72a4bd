#pragma once
// The order in which Linux lists a sysfs directory: kernfs keeps a
// directory's entries in a tree sorted by a hash of the name (then the name),
// and readdir walks that tree, so /sys/bus/pci/devices comes neither in
// address nor in discovery order.

#include <string>
#include <string_view>
#include <vector>

// kernfs_name_hash() of a 64-bit kernel, for an entry without namespace.
unsigned kernfs_name_hash(std::string_view name);

// Sorts names into the order readdir gives them.
void sort_kernfs(std::vector<std::string>& names);
