#include "lock_holder.hpp"

#include "files.hpp"
#include "lib/unique_fd.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <stdexcept>

namespace {

[[noreturn]] void hold(const std::string& lock_file, unsigned seconds, int ready)
{
    // The holder must not outlive the run that started it.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    int fd = ::open(lock_file.c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0 || ::lockf(fd, F_LOCK, 0) != 0)
        ::_exit(1);
    char byte = 1;
    if (::write(ready, &byte, 1) != 1)
        ::_exit(1);
    ::close(ready);
    timespec left{static_cast<time_t>(seconds), 0};
    while (::nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
    ::_exit(0);
}

} // namespace

LockHolder::LockHolder(const std::string& lock_file, unsigned seconds)
{
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0)
        throw_errno("pipe");
    UniqueFd read_end(fds[0]);
    UniqueFd write_end(fds[1]);
    pid_ = ::fork();
    if (pid_ < 0)
        throw_errno("fork");
    if (pid_ == 0) {
        read_end.reset();
        hold(lock_file, seconds, write_end.release());
    }
    write_end.reset();
    char byte = 0;
    ssize_t n;
    do
        n = ::read(read_end.get(), &byte, 1);
    while (n < 0 && errno == EINTR);
    if (n != 1) {
        ::waitpid(pid_, nullptr, 0);
        pid_ = -1;
        throw std::runtime_error(lock_file + ": the lock holder could not take the lock");
    }
}

LockHolder::~LockHolder()
{
    if (pid_ <= 0)
        return;
    ::kill(pid_, SIGKILL);
    while (::waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
}
