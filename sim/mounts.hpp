#pragma once
// The private view of the simulated server: new mount and UTS namespaces in
// which the fixed paths of the tool show the trees of ROOT.

#include <string>

inline constexpr const char* simulated_hostname = "simhost";

// Enters the namespaces and mounts ROOT's trees over /etc/opt/KVTPslotag,
// /var/opt/KVTPslotag, /sys, /proc/devices, /dev and /usr/sbin. Throws on
// failure. root must be an absolute, canonical path.
void enter_simulated_server(const std::string& root);
