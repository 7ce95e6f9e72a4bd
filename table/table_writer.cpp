// Writing the table back. A file is replaced whole: the new table goes to a
// temporary file beside it, is synced, the old versions move to .1 ... .10,
// a rename puts the new one in place, and the directory is synced so the
// new names survive a power cut. Hang-up, interrupt and terminate
// are held off meanwhile so no signal leaves a half-written table.
#include "table/table_writer.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <fcntl.h>
#include <unistd.h>

#include "cli/report.h"
#include "cli/user_log.h"
#include "lib/sync_directory.h"
#include "table/hba_addr_conf.h"

namespace {

constexpr int32_t TABLE_GENERATIONS = 10;

// Restores the signal mask it was given on every way out.
class SignalHold {
public:
    explicit SignalHold(const sigset_t &previous) : previous_(previous) {}
    ~SignalHold()
    {
        if (sigprocmask(SIG_SETMASK, &previous_, nullptr) == -1)
            log_info("could not set unblocked signals(%d).\n", errno);
    }
    SignalHold(const SignalHold &) = delete;
    SignalHold &operator=(const SignalHold &) = delete;

private:
    sigset_t previous_;
};

// The temporary file: removed on every way out unless it became the table.
class TempFile {
public:
    explicit TempFile(char *name) : name_(name) {}
    ~TempFile()
    {
        if (stream_)
            fclose(stream_);
        else if (fd_ >= 0)
            close(fd_);
        if (remove_)
            unlink(name_);
    }
    TempFile(const TempFile &) = delete;
    TempFile &operator=(const TempFile &) = delete;

    bool create(const char *template_name)
    {
        fd_ = mkostemp(name_, O_CLOEXEC);
        if (fd_ == -1) {
            report_io_error(template_name, errno, 0xf39);
            return false;
        }
        remove_ = true;
        return true;
    }
    FILE *open_stream()
    {
        stream_ = fdopen(fd_, "w+");
        if (!stream_)
            report_io_error(name_, errno, 0xf42);
        return stream_;
    }
    bool close_stream()
    {
        FILE *s = stream_;
        stream_ = nullptr;
        fd_ = -1;
        if (fclose(s) != 0) {
            report_io_error(name_, errno, 0xf53);
            return false;
        }
        return true;
    }
    void keep() { remove_ = false; }

private:
    char *name_;
    int fd_ = -1;
    FILE *stream_ = nullptr;
    bool remove_ = false;
};

// Collects output in a fixed buffer and writes it to the stream when full.
// The buffer is larger than the stream's own (a block of the file system):
// the stream then hands each one to the kernel whole, in a few writes for a
// large table rather than two for every 8 KB.
// A block the stream could not write is gone from its buffer, and a later
// flush of the emptied buffer succeeds: the first failure is kept here, with
// its errno, for the flush step to report.
class BlockWriter {
public:
    explicit BlockWriter(FILE *stream) : stream_(stream) {}
    void put(std::string_view text)
    {
        if (text.size() > sizeof buf_ - used_) {
            drain();
            if (text.size() > sizeof buf_) {
                write_out(text.data(), text.size());
                return;
            }
        }
        memcpy(buf_ + used_, text.data(), text.size());
        used_ += text.size();
    }
    void put(char c)
    {
        if (used_ == sizeof buf_)
            drain();
        buf_[used_++] = c;
    }
    void drain()
    {
        if (used_)
            write_out(buf_, used_);
        used_ = 0;
    }
    // The errno of the first write that failed, 0 when none did.
    int error() const { return error_; }

private:
    void write_out(const char *data, size_t n)
    {
        if (fwrite(data, 1, n, stream_) != n && error_ == 0)
            error_ = errno != 0 ? errno : EIO;
    }

    FILE *stream_;
    int error_ = 0;
    size_t used_ = 0;
    char buf_[64 * 1024];
};

char *alloc_cleared(size_t n) { return new (std::nothrow) char[n](); }

void log_pending_signals()
{
    sigset_t pending;
    if (sigpending(&pending) == -1) {
        log_info("could not get pending signal(%d).\n", errno);
        fflush(nullptr);
        return;
    }
    unsigned long long mask = 0;
    for (int n = 1; n <= 63; n++)
        if (sigismember(&pending, n) == 1)
            mask |= 1ULL << (n - 1);
    if (mask) {
        log_info("pending signal 0x%llx\n", mask);
        fflush(nullptr);
    }
}

// The rename failed after the rotation moved the table to .1: put the
// previous table back under its name, so the next run can still load it
// (the new table stays in the temporary file for the administrator).
bool restore_previous(const char *path, char *buf, size_t size)
{
    if (snprintf(buf, size, "%s.1", path) >= static_cast<int>(size) || access(path, F_OK) == 0)
        return false;
    return link(buf, path) == 0;
}

// A sync that fails leaves the file written as the run reports it: only the
// power-cut guarantee is weaker, which the log tells the administrator.
void sync_directory(const char *path)
{
    if (sync_parent_directory(path) == -1)
        log_info("can not sync the directory(%s:%d).\n", path, errno);
}

int write_to_file(const char *path)
{
    const size_t name_size = strlen(path) + 7;
    std::unique_ptr<char[]> temp_name(alloc_cleared(name_size));
    if (!temp_name) {
        report_no_resources(name_size, 0xf22);
        return -1;
    }
    const size_t rotation_size = 2 * name_size;
    std::unique_ptr<char[]> rotation(alloc_cleared(rotation_size));
    if (!rotation) {
        report_no_resources(rotation_size, 0xf30);
        return -1;
    }
    snprintf(temp_name.get(), name_size, "%sXXXXXX", path);
    // mkstemp changes the template even when it fails; the message names
    // the template as it was. The rotation buffer is free until the
    // rotation, so it holds the copy and the write needs no more memory.
    snprintf(rotation.get(), rotation_size, "%s", temp_name.get());

    TempFile temp(temp_name.get());
    if (!temp.create(rotation.get()))
        return -1;
    FILE *stream = temp.open_stream();
    if (!stream)
        return -1;
    if (print_hba_addr_conf(stream, path) == -1)
        return -1;
    if (!temp.close_stream())
        return -1;

    uint32_t step = 0;
    if (rotate_generations(TABLE_GENERATIONS, rotation.get(), rotation_size, path, &step) == -1)
        log_info("can not rotate the file(%s:%d:0x%x).\n", path, errno, step);
    // The backups' names are made durable before the table's name moves to
    // the new file, so a power cut cannot keep the new name and lose .1.
    sync_directory(path);
    if (rename(temp_name.get(), path) == -1) {
        report_io_error(path, errno, 0xf6a);
        temp.keep();
        restore_previous(path, rotation.get(), rotation_size);
        return -1;
    }
    temp.keep();
    // The file's data was synced before the rename, but the rename itself
    // lives in the directory: without this a power cut can bring back the
    // old table, or no table at all, after the run said it was written.
    sync_directory(path);
    return 0;
}

} // namespace

int print_hba_addr_conf(FILE *stream, const char *name)
{
    // Tokens are short: they are gathered here and handed to the stream a
    // block at a time rather than one call each.
    BlockWriter out(stream);
    for (auto it = hba_addr_table.begin(); it != hba_addr_table.end(); ++it) {
        if (it->flags & TOKEN_DELETED)
            continue;
        out.put(it->text);
        auto next = std::next(it);
        if (!it->is_eol() && next != hba_addr_table.end() && !next->is_eol())
            out.put(' ');
    }
    out.drain();
    // The single writes go unchecked, but the flush step answers for all of
    // them: a table cut short must never count as written.
    int failed = out.error();
    if (fflush(stream) != 0 && failed == 0)
        failed = errno;
    if (failed == 0 && ferror(stream))
        failed = EIO;
    if (failed != 0) {
        report_io_error(name ? name : "(stdout)", failed, 0x2b5);
        return -1;
    }
    if (!name)
        return 0;
    int fd = fileno(stream);
    if (fd == -1) {
        report_io_error(name, errno, 0x2bc);
        return -1;
    }
    if (fsync(fd) == -1) {
        report_io_error(name, errno, 0x2c3);
        return -1;
    }
    return 0;
}

int write_hba_addr_conf(const char *out)
{
    sigset_t set;
    if (sigemptyset(&set) == -1) {
        report_no_resources(static_cast<unsigned long long>(errno), 0xf01);
        return -1;
    }
    static const struct {
        int signal;
        unsigned site;
    } held[] = {{SIGHUP, 0xf06}, {SIGINT, 0xf0b}, {SIGTERM, 0xf10}};
    for (const auto &h : held) {
        if (sigaddset(&set, h.signal) == -1) {
            report_no_resources(static_cast<unsigned long long>(errno), h.site);
            return -1;
        }
    }
    sigset_t previous;
    if (sigprocmask(SIG_BLOCK, &set, &previous) == -1) {
        report_no_resources(static_cast<unsigned long long>(errno), 0xf15);
        return -1;
    }
    SignalHold hold(previous);
    if (out) {
        if (write_to_file(out) == -1)
            return -1;
    } else if (print_hba_addr_conf(stdout, nullptr) == -1) {
        return -1;
    }
    log_pending_signals();
    return 0;
}
