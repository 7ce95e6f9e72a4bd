// Path buffers: one size fits every path the kernel hands out or accepts.
#include "resolve/path_buffer.h"

#include <cstdarg>
#include <cstdio>
#include <new>
#include <unistd.h>

bool PathBuffer::format(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    int n = vsnprintf(data.get(), size, format, args);
    va_end(args);
    return n >= 0 && static_cast<size_t>(n) < size;
}

bool PathBuffer::read_link(const char *path)
{
    // One byte is kept back for the NUL that readlink does not write.
    ssize_t n = readlink(path, data.get(), size - 1);
    if (n == -1)
        return false;
    data[static_cast<size_t>(n)] = '\0';
    return true;
}

PathBuffer alloc_path_buffer()
{
    // Read on every call: nothing here is worth caching for a few paths.
    long page = sysconf(_SC_PAGESIZE);
    long path_max = pathconf("/dev/", _PC_PATH_MAX);
    long size = page > path_max ? page : path_max;
    if (size <= 0)
        size = 4096;
    PathBuffer buffer;
    buffer.size = static_cast<size_t>(size);
    buffer.data.reset(new (std::nothrow) char[buffer.size]);
    return buffer;
}
