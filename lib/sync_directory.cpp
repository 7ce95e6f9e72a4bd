#include "lib/sync_directory.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "lib/unique_fd.h"

namespace {

constexpr int DIR_FLAGS = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

int open_parent(const char *path)
{
    const char *slash = strrchr(path, '/');
    if (!slash)
        return open(".", DIR_FLAGS);
    if (slash == path)
        return open("/", DIR_FLAGS);
    // On the stack: a sync that could fail for want of memory would make
    // the outcome of a completed write depend on the heap.
    char dir[PATH_MAX];
    size_t len = static_cast<size_t>(slash - path);
    if (len >= sizeof dir) {
        errno = ENAMETOOLONG;
        return -1;
    }
    memcpy(dir, path, len);
    dir[len] = '\0';
    return open(dir, DIR_FLAGS);
}

} // namespace

int sync_parent_directory(const char *path)
{
    int saved = errno;
    UniqueFd dir(open_parent(path));
    if (!dir)
        return -1;
    if (fsync(dir.get()) == -1)
        return -1;
    errno = saved;
    return 0;
}
