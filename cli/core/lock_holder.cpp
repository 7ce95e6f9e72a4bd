#include "cli/core/lock_holder.h"

#include <cstdio>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "cli/core/run_lock.h"
#include "lib/unique_fd.h"

namespace {

// The command name the kernel keeps for pid, or "" when it is gone.
std::string process_name(pid_t pid)
{
    std::string path = "/proc/" + std::to_string(pid) + "/comm";
    UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    char name[64];
    ssize_t n = fd ? read(fd.get(), name, sizeof name) : -1;
    if (n <= 0)
        return {};
    std::string s(name, static_cast<size_t>(n));
    if (s.back() == '\n')
        s.pop_back();
    return s;
}

} // namespace

void tell_run_lock_holder()
{
    // Closed again before the lock is taken: closing a descriptor of the
    // file would otherwise drop the lock this process holds.
    UniqueFd fd(open(LOCK_PATH, O_RDONLY | O_CLOEXEC));
    if (!fd)
        return;  // take_run_lock tells why
    struct flock holder = {};
    holder.l_type = F_WRLCK;
    holder.l_whence = SEEK_SET;
    if (fcntl(fd.get(), F_GETLK, &holder) != 0 || holder.l_type == F_UNLCK)
        return;
    // lockf locks are POSIX record locks, so F_GETLK names their owner; a
    // PID of 0 is a process this PID namespace cannot see.
    const char *wait = "waiting for it, ten seconds at most";
    if (holder.l_pid <= 0) {
        fprintf(stderr, "The run lock is held by a process outside this PID namespace; %s.\n",
                wait);
        return;
    }
    std::string name = process_name(holder.l_pid);
    if (name.empty())
        fprintf(stderr, "The run lock is held by process %ld; %s.\n",
                static_cast<long>(holder.l_pid), wait);
    else
        fprintf(stderr, "The run lock is held by process %ld (%s); %s.\n",
                static_cast<long>(holder.l_pid), name.c_str(), wait);
}
