// The run lock: one run of slotag (or of a command that reads what slotag
// writes to the hardware) at a time.
#pragma once

constexpr const char *LOCK_PATH = "/var/opt/KVTPslotag/lock/.slotag.lock";

enum class RunLock { HELD, OPEN_FAILED, LOCK_FAILED };

// Opens the lock file (it must exist) and locks it, each with the retries of
// open_retry and lockf_retry, which report their own failures. The
// descriptor is never closed: the lock lasts until the process ends.
RunLock take_run_lock();
