// The directory part and the last component of a path, with the results
// of POSIX dirname and basename but without touching the path itself.
#pragma once

#include <string_view>

// "/a/b/" -> "/a", "b" -> ".", "/" -> "/".
std::string_view path_dirname(std::string_view path);
// "/a/b/" -> "b", "/" -> "/", "" -> ".".
std::string_view path_basename(std::string_view path);
