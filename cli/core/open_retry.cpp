// Retrying open and lock: a device node opened without blocking, or a lock
// held by another run, may answer EAGAIN for a while.
#include "cli/core/open_retry.h"

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

#include "cli/core/report.h"

namespace {

constexpr int RETRY_ATTEMPTS = 10;
constexpr struct timespec RETRY_PAUSE = {1, 0};

struct RetrySites {
    unsigned failed;     // an error other than EAGAIN
    unsigned pause;      // the pause between attempts failed
    unsigned exhausted;  // every attempt answered EAGAIN
};

template <typename Attempt>
int retry(const char *path, const RetrySites &sites, Attempt attempt)
{
    for (int i = 0; i < RETRY_ATTEMPTS; i++) {
        int r = attempt();
        if (r != -1)
            return r;
        if (errno != EAGAIN) {
            report_io_error(path, errno, sites.failed);
            return -1;
        }
        if (nanosleep(&RETRY_PAUSE, nullptr) == -1) {
            report_no_resources(static_cast<unsigned long long>(errno), sites.pause);
            log_err("%ld.%ld[s]\n", static_cast<long>(RETRY_PAUSE.tv_sec),
                    static_cast<long>(RETRY_PAUSE.tv_nsec));
            return -1;
        }
    }
    report_io_error(path, errno, sites.exhausted);
    log_err("timeout in %d * %ld.%ld[s]\n", RETRY_ATTEMPTS, static_cast<long>(RETRY_PAUSE.tv_sec),
            static_cast<long>(RETRY_PAUSE.tv_nsec));
    return -1;
}

} // namespace

int open_retry(const char *path, int flags)
{
    // Close-on-exec: the volume manager's query command must not inherit
    // the lock or a device descriptor.
    return retry(path, {0x3de, 0x3d7, 0x3e7}, [&] { return open(path, flags | O_CLOEXEC); });
}

int lockf_retry(int fd, int command, off_t length, const char *path)
{
    return retry(path, {0x40a, 0x403, 0x413}, [&] { return lockf(fd, command, length); });
}
