#pragma once
// Small file-system helpers for the simulator; failures throw
// std::system_error naming the path.

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

[[noreturn]] void throw_errno(const std::string& what);

void write_file(const std::string& path, std::string_view content, mode_t mode = 0644);
void write_file(const std::string& path, const std::vector<std::uint8_t>& content,
                mode_t mode = 0644);
// The whole file, or nullopt when it does not exist.
std::optional<std::string> read_file(const std::string& path);
// mkdir -p; the mode applies to the directories it creates.
void make_dirs(const std::string& path, mode_t mode = 0755);
void make_symlink(const std::string& target, const std::string& link);
bool exists(const std::string& path);
// realpath: the path with every link and "." or ".." resolved.
std::string canonical(const std::string& path);
bool is_directory(const std::string& path);
// Names in a directory, "." and ".." left out, sorted.
std::vector<std::string> list_dir(const std::string& path);
