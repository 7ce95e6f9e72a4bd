// Durability of a directory entry: a rename, link or unlink is only sure to
// survive a power cut once the directory that holds the name is synced.
#pragma once

// Syncs the directory that holds `path` (its last component is the file's
// name; "name" alone means the current directory). Returns 0, or -1 with
// errno set; errno is unchanged on success.
int sync_parent_directory(const char *path);
