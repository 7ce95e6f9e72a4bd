// The attention file is opened beneath a descriptor of the slot's own
// directory, never through a symbolic link, and only when it is a regular
// file: a slot entry that leads elsewhere must not make a root tool write
// into another file.
#include "locate/attention.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "lib/unique_fd.h"

namespace {

constexpr const char *SYSFS_SLOTS = "/sys/bus/pci/slots";
constexpr const char *ATTENTION = "attention";
// The kernel prints a small number and a line end.
constexpr size_t STATE_MAX = 16;

AttentionResult refused(const std::string &reason)
{
    AttentionResult r;
    r.kind = AttentionResult::REFUSED;
    r.reason = reason;
    return r;
}

AttentionResult refused_errno(const char *what, int err)
{
    return refused(std::string(what) + ": " + strerror(err));
}

// The kernel's numbers in words: 0 off, 1 on, 2 blinking (pciehp, shpchp);
// another driver's own numbers are given as they read.
std::string state_word(const std::string &text)
{
    if (text == "0")
        return "off";
    if (text == "1")
        return "on";
    if (text == "2")
        return "blinking";
    return text;
}

bool same_file(const struct stat &a, const struct stat &b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Opens the attention file of dir for `flags`, when it is the regular file
// the directory lists; err tells why not (0: there is none).
UniqueFd open_attention(int dir, int flags, std::string &why)
{
    struct stat listed, opened;
    if (fstatat(dir, ATTENTION, &listed, AT_SYMLINK_NOFOLLOW) == -1) {
        why = errno == ENOENT ? "" : std::string("cannot look at it: ") + strerror(errno);
        return UniqueFd();
    }
    if (S_ISLNK(listed.st_mode)) {
        why = "it is a symbolic link, which is not followed";
        return UniqueFd();
    }
    if (!S_ISREG(listed.st_mode)) {
        why = "it is not a regular file";
        return UniqueFd();
    }
    UniqueFd fd(openat(dir, ATTENTION, flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd) {
        why = strerror(errno);
        return fd;
    }
    if (fstat(fd.get(), &opened) == -1 || !S_ISREG(opened.st_mode) || !same_file(listed, opened)) {
        why = "it was replaced while being opened";
        return UniqueFd();
    }
    return fd;
}

bool write_all(int fd, const char *text, size_t length)
{
    ssize_t n;
    do
        n = write(fd, text, length);
    while (n == -1 && errno == EINTR);
    if (n >= 0 && static_cast<size_t>(n) != length)
        errno = EIO;  // a short write leaves the kernel with part of a number
    return n >= 0 && static_cast<size_t>(n) == length;
}

// The first line of the file, at most STATE_MAX bytes.
bool read_state(int fd, std::string &text)
{
    char buf[STATE_MAX + 1];
    ssize_t n;
    do
        n = read(fd, buf, STATE_MAX);
    while (n == -1 && errno == EINTR);
    if (n < 0)
        return false;
    text.assign(buf, strnlen(buf, static_cast<size_t>(n)));
    text.resize(std::min(text.find('\n'), text.size()));
    return true;
}

} // namespace

AttentionResult set_attention(const std::string &name, bool on)
{
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos)
        return refused("the slot name is not a plain directory name");
    UniqueFd slots(open(SYSFS_SLOTS, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!slots)
        return refused_errno(SYSFS_SLOTS, errno);
    UniqueFd dir(openat(slots.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!dir)
        return refused_errno("its directory cannot be opened (a symbolic link is not followed)", errno);

    std::string why;
    UniqueFd out = open_attention(dir.get(), O_WRONLY | O_TRUNC, why);
    if (!out) {
        if (why.empty()) {
            AttentionResult r;
            r.kind = AttentionResult::NO_INDICATOR;
            return r;
        }
        return refused("the attention file cannot be written: " + why);
    }
    const char *text = on ? "1\n" : "0\n";
    if (!write_all(out.get(), text, strlen(text))) {
        // A slot driver without indicator operations still gets the file:
        // Linux's acpiphp lists one and answers every write with ENODEV.
        if (errno == ENODEV) {
            AttentionResult r;
            r.kind = AttentionResult::NO_INDICATOR;
            r.reason = "its hot-plug driver has no indicator to set (the kernel answers: " +
                       std::string(strerror(ENODEV)) + ")";
            return r;
        }
        return refused_errno("the kernel refused the change", errno);
    }
    out.reset();

    // Read through a new descriptor: sysfs asks the driver again only then.
    UniqueFd in = open_attention(dir.get(), O_RDONLY, why);
    std::string read_back;
    if (!in || !read_state(in.get(), read_back))
        return refused("the change was taken, but the state cannot be read back: " +
                       (in ? std::string(strerror(errno)) : why));
    AttentionResult r;
    r.kind = AttentionResult::SET;
    r.state = state_word(read_back);
    if (r.state != (on ? "on" : "off")) {
        r.kind = AttentionResult::REFUSED;
        r.reason = "the kernel took the change but reads back " + r.state;
    }
    return r;
}
