// Opening and locking with retries while the system answers EAGAIN: ten
// attempts one second apart. Both print and log their own failures.
#pragma once

#include <sys/types.h>

// flags must not contain O_CREAT. Returns the descriptor or -1.
int open_retry(const char *path, int flags);
// Returns 0 when the lock is held, -1 otherwise; path is for messages only.
int lockf_retry(int fd, int command, off_t length, const char *path);
