#pragma once
// /usr/sbin/vdsstat as a /bin/sh script that plays the topology's cases:
// it appends its command line to a log, then prints, sleeps and ends as the
// case of its argument vector says.

#include "storage_desc.hpp"

#include <string>
#include <vector>

// calls_log: absolute path of the file that collects the command lines.
std::string vdsstat_script(const std::vector<QueryCase>& cases, const std::string& calls_log);
