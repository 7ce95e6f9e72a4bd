// PathBuffer: the heap buffer in which device resolution builds every path,
// link target, first word and sysfs busID; alloc_path_buffer sizes it for
// the longest path the system allows.
#pragma once

#include <cstddef>
#include <memory>

struct PathBuffer {
    std::unique_ptr<char[]> data;  // not cleared when allocated
    size_t size = 0;

    char *get() const { return data.get(); }
    explicit operator bool() const { return data != nullptr; }

    // Replaces the contents with the formatted text. false when the text
    // does not fit (the buffer then holds nothing usable).
    bool format(const char *format, ...) __attribute__((format(printf, 2, 3)));

    // Replaces the contents with the target of the symbolic link at path,
    // terminated. false (errno set) when the link cannot be read.
    bool read_link(const char *path);
};

// A buffer of the larger of the page size and the path limit of /dev/ (4096
// when neither is known). size is set even when the allocation fails.
PathBuffer alloc_path_buffer();
