// The operation log. Each record is flushed by closing the file after it and
// the file is opened again by name for the next one, so records of several
// runs interleave whole and follow a rotation made by anyone.
#include "cli/core/user_log.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include "lib/sync_directory.h"

UserLog *g_user_log = nullptr;

namespace {

constexpr uint32_t MSG_BUF_SIZE = 4096;

void set_code(uint32_t *code, uint32_t value)
{
    if (code)
        *code = value;
}

// Opens the log file without following a symbolic link: the log lives in a
// directory root writes to, and a planted link must not redirect it.
// `base` is 0x400 for the first open and 0x1000 for a reopen.
bool open_log_file(UserLog *log, uint32_t base, uint32_t *code)
{
    struct stat st;
    int fd;
    if (lstat(log->path, &st) == -1) {
        if (errno != ENOENT) {
            set_code(code, base + 6);
            return false;
        }
        fd = open(log->path, O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0640);
    } else if (!S_ISREG(st.st_mode)) {
        set_code(code, base + 7);
        return false;
    } else {
        // O_NOFOLLOW closes the window between the look-up and the open.
        fd = open(log->path, O_WRONLY | O_APPEND | O_NOFOLLOW | O_CLOEXEC);
    }
    if (fd == -1) {
        set_code(code, base + 8);
        return false;
    }
    FILE *stream = fdopen(fd, "a");
    if (!stream) {
        int err = errno;
        close(fd);
        errno = err;
        set_code(code, base + 9);
        return false;
    }
    log->fd = fd;
    log->stream = stream;
    return true;
}

const char *level_name(int level)
{
    static const char *const names[] = {"EMERG",   "ALERT",  "CRIT", "ERR",
                                        "WARNING", "NOTICE", "INFO", "DEBUG"};
    if (level < 0 || level > 7)
        return "UNKNOWN";
    return names[level];
}

// Restores errno on every way out that reports success.
struct ErrnoKeeper {
    int saved = errno;
    int ok() const
    {
        errno = saved;
        return 0;
    }
};

} // namespace

UserLog::~UserLog() { close_file(); }

void UserLog::close_file()
{
    if (stream)
        fclose(stream);  // closes fd too
    else if (fd >= 0)
        close(fd);
    stream = nullptr;
    fd = -1;
}

UserLog *user_log_open(const char *ident, const char *path, int32_t size_limit,
                       int32_t generations, uint32_t *code)
{
    ErrnoKeeper keep;
    std::unique_ptr<UserLog> log(new (std::nothrow) UserLog);
    if (!log) {
        set_code(code, 0xa);
        errno = ENOMEM;
        return nullptr;
    }
    log->ident = ident;
    log->path = path;
    log->size_limit = size_limit;
    log->generations = generations;
    if (path && !open_log_file(log.get(), 0x400, code))
        return nullptr;
    log->msg_buf.reset(new (std::nothrow) char[MSG_BUF_SIZE]);
    if (!log->msg_buf) {
        set_code(code, 0xb);
        errno = ENOMEM;
        return nullptr;
    }
    log->msg_buf_size = MSG_BUF_SIZE;
    keep.ok();
    return log.release();
}

int user_log_vwrite(UserLog *log, unsigned dest, int level, uint32_t *code,
                    const char *format, va_list args)
{
    if (!log) {
        set_code(code, 0xc);
        errno = EINVAL;
        return -1;
    }
    ErrnoKeeper keep;
    const char *name = level_name(level);

    int n = vsnprintf(log->msg_buf.get(), log->msg_buf_size, format, args);
    if (n < 1 || static_cast<uint32_t>(n) >= log->msg_buf_size) {
        set_code(code, 0xd);
        errno = EOVERFLOW;
        return -1;
    }
    if (!(dest & USER_LOG_FILE) || !log->stream)
        return keep.ok();

    struct timeval tv;
    if (gettimeofday(&tv, nullptr) == -1) {
        set_code(code, 0xe);
        return -1;
    }
    struct tm tm;
    time_t secs = tv.tv_sec;
    if (!localtime_r(&secs, &tm)) {
        set_code(code, 0xf);
        return -1;
    }
    char when[32];
    size_t wn = strftime(when, sizeof when, "%b %d %T", &tm);
    if (wn == 0 || wn > 31) {
        set_code(code, 0x10);
        errno = EOVERFLOW;
        return -1;
    }
    char host[256];
    if (gethostname(host, sizeof host) == -1) {
        set_code(code, 0x11);
        return -1;
    }
    host[sizeof host - 1] = '\0';

    fprintf(log->stream, "%s %s %s[%d]: %s: <%lx.%lx>%s", when, host, log->ident,
            static_cast<int>(getpid()), name, static_cast<unsigned long>(tv.tv_sec),
            static_cast<unsigned long>(tv.tv_usec), log->msg_buf.get());

    // The size is taken while the record still sits in the stream's buffer:
    // the record that finds the file full is the last one of that file.
    struct stat st;
    if (fstat(log->fd, &st) == -1)
        return keep.ok();
    if (st.st_size >= log->size_limit) {
        if (rotate_generations(log->generations, log->msg_buf.get(), log->msg_buf_size,
                               log->path, nullptr) == -1)
            return keep.ok();
        // The generations moved by name only: a power cut before the
        // directory reaches the disk could take a whole generation of
        // records with it. The log has nowhere to report a failed sync.
        sync_parent_directory(log->path);
    }

    log->close_file();
    if (!log->path)
        return keep.ok();
    if (!open_log_file(log, 0x1000, code))
        return -1;
    return keep.ok();
}

int user_log_write(UserLog *log, unsigned dest, int level, uint32_t *code,
                   const char *format, ...)
{
    va_list args;
    va_start(args, format);
    int r = user_log_vwrite(log, dest, level, code, format, args);
    va_end(args);
    return r;
}

void user_log_close(UserLog *log) { delete log; }

int rotate_generations(int32_t generations, char *buf, size_t size, const char *path,
                       uint32_t *code)
{
    ErrnoKeeper keep;
    if (generations < 0)
        return keep.ok();
    for (int32_t k = generations; k >= 0; k--) {
        int n = k == 0 ? snprintf(buf, size, "%s", path)
                       : snprintf(buf, size, "%s.%d", path, static_cast<int>(k));
        if (n < 1 || static_cast<size_t>(n) >= size) {
            set_code(code, 2);
            errno = EOVERFLOW;
            return -1;
        }
        if (unlink(buf) == -1 && errno != ENOENT) {
            set_code(code, 3);
            return -1;
        }
        if (k == 0)
            return keep.ok();
        char *older = buf + n + 1;
        size_t room = size - static_cast<size_t>(n) - 1;
        int m = k - 1 == 0 ? snprintf(older, room, "%s", path)
                           : snprintf(older, room, "%s.%d", path, static_cast<int>(k - 1));
        if (m < 1 || static_cast<size_t>(m) >= room) {
            set_code(code, 4);
            errno = EOVERFLOW;
            return -1;
        }
        // Link first, unlink in the next round: each file keeps a name.
        if (link(older, buf) == -1 && errno != ENOENT) {
            set_code(code, 5);
            return -1;
        }
    }
    return keep.ok();
}
