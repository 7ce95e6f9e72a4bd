// What every fuzz target shares: the input as a file the product can open
// by path or read by descriptor, and a property check that names what broke.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

// The product reports refusals on standard error; the runs close it
// (-close_fd_mask=2), so a failed property goes to a copy of it taken
// before main.
inline const int fuzz_report_fd = dup(2);

[[noreturn]] inline void fuzz_fail(const char *what, const std::string &detail)
{
    std::string msg = std::string("property failed: ") + what + "\n" + detail + "\n";
    if (write(fuzz_report_fd, msg.data(), msg.size()) < 0) {
        // nothing more to say: abort below is the report
    }
    abort();
}

#define FUZZ_CHECK(cond, detail) \
    do { \
        if (!(cond)) \
            fuzz_fail(#cond, (detail)); \
    } while (0)

// One memory file per target, refilled for every input; the product opens
// it through /proc/self/fd like any other path.
class InputFile {
public:
    InputFile() : fd_(memfd_create("fuzz-input", 0))
    {
        if (fd_ < 0)
            abort();
        path_ = "/proc/self/fd/" + std::to_string(fd_);
    }
    void fill(const uint8_t *data, size_t size)
    {
        if (ftruncate(fd_, 0) != 0 || pwrite(fd_, data, size, 0) != static_cast<ssize_t>(size)
            || lseek(fd_, 0, SEEK_SET) != 0)
            abort();
    }
    int fd() const { return fd_; }
    const char *path() const { return path_.c_str(); }

private:
    int fd_;
    std::string path_;
};

// The text of a file, or "" when it cannot be read.
inline std::string slurp(const char *path)
{
    std::string out;
    if (FILE *f = fopen(path, "rb")) {
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, f)) > 0)
            out.append(buf, n);
        fclose(f);
    }
    return out;
}
