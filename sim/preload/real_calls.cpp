#include "preload/real_calls.hpp"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace preload {

void* next_symbol(const char* name)
{
    void* symbol = ::dlsym(RTLD_NEXT, name);
    if (!symbol) {
        std::fprintf(stderr, "slotag-sim preload: no %s in the C library\n", name);
        std::abort();
    }
    return symbol;
}

namespace real {

namespace {

template <typename F>
F next(const char* name)
{
    return reinterpret_cast<F>(next_symbol(name));
}

} // namespace

int open(const char* path, int flags, mode_t mode)
{
    static auto fn = next<int (*)(const char*, int, ...)>("open64");
    return fn(path, flags, mode);
}

int close(int fd)
{
    static auto fn = next<int (*)(int)>("close");
    return fn(fd);
}

ssize_t read(int fd, void* buf, std::size_t count)
{
    static auto fn = next<ssize_t (*)(int, void*, std::size_t)>("read");
    return fn(fd, buf, count);
}

ssize_t write(int fd, const void* buf, std::size_t count)
{
    static auto fn = next<ssize_t (*)(int, const void*, std::size_t)>("write");
    return fn(fd, buf, count);
}

ssize_t pread(int fd, void* buf, std::size_t count, off64_t offset)
{
    static auto fn = next<ssize_t (*)(int, void*, std::size_t, off64_t)>("pread64");
    return fn(fd, buf, count, offset);
}

ssize_t pwrite(int fd, const void* buf, std::size_t count, off64_t offset)
{
    static auto fn = next<ssize_t (*)(int, const void*, std::size_t, off64_t)>("pwrite64");
    return fn(fd, buf, count, offset);
}

int ioctl(int fd, unsigned long request, void* arg)
{
    static auto fn = next<int (*)(int, unsigned long, ...)>("ioctl");
    return fn(fd, request, arg);
}

DIR* opendir(const char* path)
{
    static auto fn = next<DIR* (*)(const char*)>("opendir");
    return fn(path);
}

dirent64* readdir64(DIR* dir)
{
    static auto fn = next<dirent64* (*)(DIR*)>("readdir64");
    return fn(dir);
}

int closedir(DIR* dir)
{
    static auto fn = next<int (*)(DIR*)>("closedir");
    return fn(dir);
}

} // namespace real

} // namespace preload
