// UniqueDir: sole owner of one directory stream, closed when the owner goes.
#pragma once

#include <cerrno>
#include <dirent.h>
#include <memory>

struct DirCloser {
    // errno is kept: a failure is usually being reported when the stream
    // goes.
    void operator()(DIR *d) const
    {
        int saved = errno;
        closedir(d);
        errno = saved;
    }
};

using UniqueDir = std::unique_ptr<DIR, DirCloser>;
