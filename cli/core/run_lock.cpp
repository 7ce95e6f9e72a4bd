#include "cli/core/run_lock.h"

#include <fcntl.h>
#include <unistd.h>

#include "cli/core/open_retry.h"

RunLock take_run_lock()
{
    int fd = open_retry(LOCK_PATH, O_RDWR);
    if (fd == -1)
        return RunLock::OPEN_FAILED;
    if (lockf_retry(fd, F_TLOCK, 0, LOCK_PATH) != 0)
        return RunLock::LOCK_FAILED;
    return RunLock::HELD;
}
