// Canonical device paths, shared by the add command and the volume-manager
// resolution.
#include "resolve/real_path.h"

#include <climits>
#include <cstdlib>
#include <new>
#include <unistd.h>

#include "cli/core/report.h"

std::unique_ptr<char[]> get_real_path(const char *path, struct stat *status_out)
{
    long size = pathconf(path, _PC_PATH_MAX);
    if (size < 1)
        size = 4096;
    // realpath may write up to PATH_MAX bytes, whatever the file system
    // claims as its own limit.
    if (size < PATH_MAX)
        size = PATH_MAX;
    std::unique_ptr<char[]> real(new (std::nothrow) char[static_cast<size_t>(size)]);
    if (!real) {
        report_no_resources(static_cast<unsigned long long>(size), 1226);
        return nullptr;
    }
    if (!realpath(path, real.get()))
        return nullptr;
    if (status_out && stat(real.get(), status_out) == -1) {
        log_err("%s->%s.\n", path, real.get());
        return nullptr;
    }
    return real;
}
