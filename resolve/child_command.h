// exec_child_command: runs a program in a child process and feeds its
// standard output and standard error, in the order written, to the line
// reader; then judges how the child ended. It reports nothing itself.
#pragma once

#include <cstdint>

#include "table/line_reader.h"

// Exit codes of the child when it cannot set itself up.
constexpr int CHILD_EXEC_FAILED = 127;
constexpr int CHILD_NO_DEV_NULL = 128;
constexpr int CHILD_NO_STDIN = 129;
constexpr int CHILD_NO_STDOUT = 130;
constexpr int CHILD_NO_STDERR = 131;

// path is started with execv (no PATH search), stdin from /dev/null.
// timeout_ms bounds each wait for output (0: none). Returns 0 when the
// output was read to its end and the child exited, whatever its exit code;
// errno is then unchanged. Otherwise -1 with errno telling why: ETIMEDOUT
// after a silent spell (the child is killed), ECANCELED when a signal ended
// the child, ESTALE when it stopped, or the error of the step that failed.
// *status_out (may be null) receives the wait status whenever the child
// was waited for; *failed_out (may be null) receives 1 on failure.
int exec_child_command(const char *path, char *const argv[], int32_t timeout_ms,
                       const LineReaderCallbacks *callbacks, int32_t *status_out,
                       uint32_t *failed_out);
