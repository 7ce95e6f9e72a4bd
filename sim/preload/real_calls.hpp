#pragma once
// The C library's own functions behind the ones this library interposes,
// found with dlsym(RTLD_NEXT), for the modules and for paths no module plays.

#include <dirent.h>
#include <sys/types.h>

#include <cstddef>

namespace preload {

// The next definition of a symbol after this library; aborts if there is none.
void* next_symbol(const char* name);

namespace real {
int open(const char* path, int flags, mode_t mode);
int close(int fd);
ssize_t read(int fd, void* buf, std::size_t count);
ssize_t write(int fd, const void* buf, std::size_t count);
ssize_t pread(int fd, void* buf, std::size_t count, off64_t offset);
ssize_t pwrite(int fd, const void* buf, std::size_t count, off64_t offset);
int ioctl(int fd, unsigned long request, void* arg);
DIR* opendir(const char* path);
dirent64* readdir64(DIR* dir);
int closedir(DIR* dir);
} // namespace real

} // namespace preload
