// UniqueFd: sole owner of one file descriptor, closed when the owner goes.
#pragma once

#include <cerrno>
#include <unistd.h>
#include <utility>

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd &operator=(UniqueFd &&other) noexcept
    {
        reset(std::exchange(other.fd_, -1));
        return *this;
    }
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;
    ~UniqueFd() { reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    // Gives the descriptor up without closing it.
    int release() { return std::exchange(fd_, -1); }

    // Closes the descriptor held (if any) and takes fd. errno is kept: a
    // failure is usually being reported when the descriptor goes.
    void reset(int fd = -1)
    {
        if (fd_ >= 0) {
            int saved = errno;
            close(fd_);
            errno = saved;
        }
        fd_ = fd;
    }

private:
    int fd_ = -1;
};
