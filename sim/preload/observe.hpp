#pragma once
// What the tests ask of the library beyond the hardware: a record of what
// the program synced, and directory listings that fail part-way.

#include <cstddef>
#include <optional>
#include <string>

namespace preload {

// Appends "file PATH" or "directory PATH: NAME..." (names sorted) for the
// descriptor to state/fsync-log, when a test created that file.
void record_fsync(int fd, int result);

// The errno a test wants fsync to fail with for a directory (directory
// true) or a file, from state/fsync-error ("directory|file ERRNO" lines);
// 0 when it is to succeed.
int fsync_failure(int fd);

// A failing listing: readdir of the directory fails with err once `after`
// entries ("." and ".." counted) have been handed out.
struct ListingFailure {
    std::size_t after = 0;
    int err = 0;
};
std::optional<ListingFailure> listing_failure(const std::string& directory);

} // namespace preload
