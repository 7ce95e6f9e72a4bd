#pragma once
// A process that holds the run lock of the simulated server for a while,
// so that a run can be seen waiting for it.

#include <sys/types.h>

#include <string>

class LockHolder {
public:
    // Returns once the child holds lockf(F_LOCK) on the file; throws if it
    // could not take it.
    LockHolder(const std::string& lock_file, unsigned seconds);
    LockHolder(const LockHolder&) = delete;
    LockHolder& operator=(const LockHolder&) = delete;
    // Ends the holder if it is still holding.
    ~LockHolder();
    pid_t pid() const { return pid_; }

private:
    pid_t pid_ = -1;
};
