// The operation log: one syslog-like record per message, appended to a file
// that is closed and reopened after every record and rotated by size.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstddef>
#include <cstdarg>
#include <memory>

// Destination bit: the log file (the only destination there is).
constexpr unsigned USER_LOG_FILE = 4;
// The two syslog severities the tool writes.
constexpr int USER_LOG_ERR = 3;
constexpr int USER_LOG_INFO = 6;

struct UserLog {
    const char *ident = nullptr;  // not owned
    const char *path = nullptr;   // not owned; may be none
    int32_t size_limit = 0;
    int32_t generations = 0;
    int fd = -1;
    FILE *stream = nullptr;
    std::unique_ptr<char[]> msg_buf;  // the record's message; rotation scratch
    uint32_t msg_buf_size = 0;

    UserLog() = default;
    UserLog(const UserLog &) = delete;
    UserLog &operator=(const UserLog &) = delete;
    ~UserLog();
    void close_file();
};

// Opens the log; on failure returns null with *code (when given) and errno
// telling the cause. On success errno is unchanged.
UserLog *user_log_open(const char *ident, const char *path, int32_t size_limit,
                       int32_t generations, uint32_t *code);

// Writes one record. Returns 0 (errno unchanged) or -1 with *code and errno.
int user_log_write(UserLog *log, unsigned dest, int level, uint32_t *code,
                   const char *format, ...) __attribute__((format(printf, 5, 6)));
int user_log_vwrite(UserLog *log, unsigned dest, int level, uint32_t *code,
                    const char *format, va_list args)
    __attribute__((format(printf, 5, 0)));

void user_log_close(UserLog *log);

// Moves path.(G-1) to path.G ... path to path.1 (hard link, then unlink of
// the older name) and removes path. Returns 0 or -1 with *code and errno.
int rotate_generations(int32_t generations, char *buf, size_t size, const char *path,
                       uint32_t *code);

// The process-wide log handle (none before it is opened).
extern UserLog *g_user_log;
