// get_real_path: the canonical path of a device path (links and "." and ".."
// resolved), with the status of the node it names.
#pragma once

#include <memory>
#include <sys/stat.h>

// Null when the path cannot be resolved or its target cannot be stat'ed
// (logged), or when there is no memory (reported). status_out may be null.
std::unique_ptr<char[]> get_real_path(const char *path, struct stat *status_out);
