// Reserving the standard descriptors, in the manner of gnulib's stdopen.
#include "cli/core/startup.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace {

bool is_open(int fd) { return fcntl(fd, F_GETFD) != -1 || errno != EBADF; }

// The open that fails any use its standard role would make of it.
int reserve(int fd)
{
    int contrary = fd == STDIN_FILENO ? O_WRONLY : O_RDONLY;
    int r = open("/dev/null", contrary);
    // Without /dev/null (a bare chroot) a path descriptor of "/" still holds
    // the number, and reading or writing through it fails too.
    if (r == -1)
        r = open("/", O_PATH | O_DIRECTORY);
    return r;
}

} // namespace

void reserve_standard_descriptors()
{
    int saved = errno;
    // Lowest first: open returns the lowest free number, so each reserve
    // lands on the descriptor it is meant for. A number that cannot be
    // reserved stays closed; the run then goes on as it would have.
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; fd++) {
        if (is_open(fd))
            continue;
        int r = reserve(fd);
        if (r != -1 && r != fd)
            close(r);
    }
    errno = saved;
}
