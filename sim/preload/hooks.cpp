// The interposed C library entry points. Each one decides whether a module
// plays the path or descriptor; if none does, it calls the C library's own
// function, so programs behave as usual outside the simulated hardware.
// Every variant a program may reach is here: fortified (__*_chk, __open_2)
// and 64-bit offset (*64) ones included.

#include "preload/module.hpp"
#include "preload/observe.hpp"
#include "preload/real_calls.hpp"
#include "preload/state.hpp"
#include "state_files.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#define EXPORT extern "C" __attribute__((visibility("default")))

// Non-zero while the library itself is at work on this thread (not while it
// only passes a call on to the C library), for a test helper preloaded
// beside it: the allocation-failure injector leaves the simulator's own
// allocations alone and fails only the program's.
extern "C" {
__attribute__((visibility("default"))) thread_local int slotag_sim_busy = 0;
}

namespace preload {

namespace {

struct Busy {
    Busy() { ++slotag_sim_busy; }
    ~Busy() { --slotag_sim_busy; }
    Busy(const Busy&) = delete;
    Busy& operator=(const Busy&) = delete;
};

// Descriptors and directory streams that belong to a module.
struct Tables {
    std::mutex mutex;
    std::map<int, Module*> descriptors;
    struct Listing {
        std::vector<std::string> names;
        std::vector<unsigned char> types;
        std::vector<ino64_t> inodes;
        std::size_t next = 0;
        std::optional<ListingFailure> failure; // a test's failing readdir
        dirent entry{};
        dirent64 entry64{};
    };
    std::map<DIR*, std::unique_ptr<Listing>> listings;
};

Tables& tables()
{
    static Tables* t = new Tables; // never destroyed: programs call close() during exit
    return *t;
}

// Most programs never touch simulated hardware; this keeps their reads and
// writes off the table lock.
std::atomic<int> tracked{0};

Module* module_of(int fd)
{
    if (tracked.load(std::memory_order_relaxed) == 0)
        return nullptr;
    std::lock_guard lock(tables().mutex);
    auto it = tables().descriptors.find(fd);
    return it == tables().descriptors.end() ? nullptr : it->second;
}

// "/sys//bus/./pci/devices/" -> "/sys/bus/pci/devices"; ".." is kept as it
// is, since a path through it is not one a module plays.
std::string clean(const std::string& path)
{
    std::string out;
    std::size_t pos = 0;
    while (pos < path.size()) {
        auto end = path.find('/', pos);
        if (end == std::string::npos)
            end = path.size();
        std::string part = path.substr(pos, end - pos);
        if (!part.empty() && part != ".")
            out += "/" + part;
        pos = end + 1;
    }
    return out.empty() ? "/" : out;
}

std::string absolute(int dirfd, const char* path)
{
    if (path[0] == '/')
        return clean(path);
    char base[PATH_MAX];
    if (dirfd == AT_FDCWD) {
        if (!::getcwd(base, sizeof base))
            return {};
    } else {
        std::string link = "/proc/self/fd/" + std::to_string(dirfd);
        ssize_t n = ::readlink(link.c_str(), base, sizeof base - 1);
        if (n <= 0)
            return {};
        base[n] = '\0';
    }
    return clean(std::string(base) + "/" + path);
}

Module* claimant(const std::string& path)
{
    if (path.empty())
        return nullptr;
    for (Module* module : modules())
        if (module->claims(path))
            return module;
    return nullptr;
}

// An open of a path: the module's if one claims it, otherwise pass on.
template <typename Pass>
int open_path(int dirfd, const char* path, int flags, mode_t mode, Pass pass)
{
    const int saved = errno;
    Module* module = nullptr;
    {
        Busy busy;
        module = path ? claimant(absolute(dirfd, path)) : nullptr;
    }
    errno = saved;
    if (!module)
        return pass();
    Busy busy;
    int fd = module->open(absolute(dirfd, path), flags, mode);
    if (fd >= 0) {
        std::lock_guard lock(tables().mutex);
        if (tables().descriptors.emplace(fd, module).second)
            tracked.fetch_add(1, std::memory_order_relaxed);
    }
    return fd;
}

mode_t mode_argument(int flags, va_list args)
{
    return (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE ? static_cast<mode_t>(va_arg(args, int))
                                                                   : 0;
}

void forget(int fd)
{
    Busy busy;
    Module* module = nullptr;
    {
        std::lock_guard lock(tables().mutex);
        auto it = tables().descriptors.find(fd);
        if (it == tables().descriptors.end())
            return;
        module = it->second;
        tables().descriptors.erase(it);
        tracked.fetch_sub(1, std::memory_order_relaxed);
    }
    module->closed(fd);
}

template <typename F>
F next(const char* name)
{
    return reinterpret_cast<F>(next_symbol(name));
}

using OpenFn = int (*)(const char*, int, ...);
using OpenatFn = int (*)(int, const char*, int, ...);

} // namespace

} // namespace preload

using namespace preload;

// The fortified entry points have no declaration without _FORTIFY_SOURCE.
extern "C" {
int __open_2(const char* path, int flags);
int __open64_2(const char* path, int flags);
int __openat_2(int dirfd, const char* path, int flags);
int __openat64_2(int dirfd, const char* path, int flags);
ssize_t __read_chk(int fd, void* buf, size_t count, size_t buflen);
ssize_t __pread_chk(int fd, void* buf, size_t count, off_t offset, size_t buflen);
ssize_t __pread64_chk(int fd, void* buf, size_t count, off64_t offset, size_t buflen);
}

#define OPEN_HOOK(name)                                                                     \
    EXPORT int name(const char* path, int flags, ...)                                       \
    {                                                                                       \
        va_list args;                                                                       \
        va_start(args, flags);                                                              \
        mode_t mode = mode_argument(flags, args);                                           \
        va_end(args);                                                                       \
        static auto real_fn = next<OpenFn>(#name);                                          \
        return open_path(AT_FDCWD, path, flags, mode,                                       \
                         [&] { return real_fn(path, flags, mode); });                       \
    }
OPEN_HOOK(open)
OPEN_HOOK(open64)

#define OPENAT_HOOK(name)                                                                   \
    EXPORT int name(int dirfd, const char* path, int flags, ...)                            \
    {                                                                                       \
        va_list args;                                                                       \
        va_start(args, flags);                                                              \
        mode_t mode = mode_argument(flags, args);                                           \
        va_end(args);                                                                       \
        static auto real_fn = next<OpenatFn>(#name);                                        \
        return open_path(dirfd, path, flags, mode,                                          \
                         [&] { return real_fn(dirfd, path, flags, mode); });                \
    }
OPENAT_HOOK(openat)
OPENAT_HOOK(openat64)

#define OPEN_CHK_HOOK(name)                                                                 \
    EXPORT int name(const char* path, int flags)                                            \
    {                                                                                       \
        static auto real_fn = next<int (*)(const char*, int)>(#name);                       \
        return open_path(AT_FDCWD, path, flags, 0, [&] { return real_fn(path, flags); });   \
    }
OPEN_CHK_HOOK(__open_2)
OPEN_CHK_HOOK(__open64_2)

#define OPENAT_CHK_HOOK(name)                                                               \
    EXPORT int name(int dirfd, const char* path, int flags)                                 \
    {                                                                                       \
        static auto real_fn = next<int (*)(int, const char*, int)>(#name);                  \
        return open_path(dirfd, path, flags, 0, [&] { return real_fn(dirfd, path, flags); }); \
    }
OPENAT_CHK_HOOK(__openat_2)
OPENAT_CHK_HOOK(__openat64_2)

EXPORT int close(int fd)
{
    forget(fd);
    return real::close(fd);
}

EXPORT ssize_t read(int fd, void* buf, size_t count)
{
    if (Module* module = module_of(fd)) {
        Busy busy;
        return module->read(fd, buf, count);
    }
    return real::read(fd, buf, count);
}

EXPORT ssize_t __read_chk(int fd, void* buf, size_t count, size_t buflen)
{
    static auto real_fn = next<ssize_t (*)(int, void*, size_t, size_t)>("__read_chk");
    if (Module* module = module_of(fd)) {
        Busy busy;
        if (count > buflen) // let the C library report the overflow
            return real_fn(fd, buf, count, buflen);
        return module->read(fd, buf, count);
    }
    return real_fn(fd, buf, count, buflen);
}

EXPORT ssize_t write(int fd, const void* buf, size_t count)
{
    if (Module* module = module_of(fd)) {
        Busy busy;
        return module->write(fd, buf, count);
    }
    return real::write(fd, buf, count);
}

EXPORT ssize_t pread(int fd, void* buf, size_t count, off_t offset)
{
    if (Module* module = module_of(fd)) {
        Busy busy;
        return module->pread(fd, buf, count, offset);
    }
    static auto real_fn = next<ssize_t (*)(int, void*, size_t, off_t)>("pread");
    return real_fn(fd, buf, count, offset);
}

EXPORT ssize_t pread64(int fd, void* buf, size_t count, off64_t offset)
{
    if (Module* module = module_of(fd)) {
        Busy busy;
        return module->pread(fd, buf, count, offset);
    }
    return real::pread(fd, buf, count, offset);
}

EXPORT ssize_t __pread_chk(int fd, void* buf, size_t count, off_t offset, size_t buflen)
{
    static auto real_fn = next<ssize_t (*)(int, void*, size_t, off_t, size_t)>("__pread_chk");
    if (Module* module = module_of(fd); module && count <= buflen) {
        Busy busy;
        return module->pread(fd, buf, count, offset);
    }
    return real_fn(fd, buf, count, offset, buflen);
}

EXPORT ssize_t __pread64_chk(int fd, void* buf, size_t count, off64_t offset, size_t buflen)
{
    static auto real_fn = next<ssize_t (*)(int, void*, size_t, off64_t, size_t)>("__pread64_chk");
    if (Module* module = module_of(fd); module && count <= buflen) {
        Busy busy;
        return module->pread(fd, buf, count, offset);
    }
    return real_fn(fd, buf, count, offset, buflen);
}

EXPORT ssize_t pwrite(int fd, const void* buf, size_t count, off_t offset)
{
    if (Module* module = module_of(fd)) {
        Busy busy;
        return module->pwrite(fd, buf, count, offset);
    }
    static auto real_fn = next<ssize_t (*)(int, const void*, size_t, off_t)>("pwrite");
    return real_fn(fd, buf, count, offset);
}

EXPORT ssize_t pwrite64(int fd, const void* buf, size_t count, off64_t offset)
{
    if (Module* module = module_of(fd)) {
        Busy busy;
        return module->pwrite(fd, buf, count, offset);
    }
    return real::pwrite(fd, buf, count, offset);
}

// The topology may have a signal sent at each fsync, so that the tests can
// see what arrives while the table file is being written.
EXPORT int fsync(int fd)
{
    static auto real_fn = next<int (*)(int)>("fsync");
    Busy busy;
    if (auto number = read_state(state::fsync_signal_file)) {
        const int signal = std::atoi(number->c_str());
        if (signal > 0)
            ::kill(::getpid(), signal);
    }
    int result;
    if (const int err = fsync_failure(fd)) {
        errno = err;
        result = -1;
    } else {
        result = real_fn(fd);
    }
    record_fsync(fd, result);
    return result;
}

EXPORT int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list args;
    va_start(args, request);
    void* arg = va_arg(args, void*);
    va_end(args);
    if (Module* module = module_of(fd)) {
        Busy busy;
        return module->ioctl(fd, request, arg);
    }
    return real::ioctl(fd, request, arg);
}

// Directory streams: a listing that a module orders is read in full from the
// real stream when it is opened, then handed out in the module's order.

namespace preload {
namespace {

void take_listing(DIR* dir, Module* module, const std::string& path)
{
    auto listing = std::make_unique<Tables::Listing>();
    std::vector<std::string> names;
    std::map<std::string, std::pair<unsigned char, ino64_t>> details;
    std::pair<unsigned char, ino64_t> dot{DT_DIR, 1}, dotdot{DT_DIR, 1};
    while (const dirent64* entry = real::readdir64(dir)) {
        std::string name = entry->d_name;
        if (name == ".")
            dot = {entry->d_type, entry->d_ino};
        else if (name == "..")
            dotdot = {entry->d_type, entry->d_ino};
        else {
            details[name] = {entry->d_type, entry->d_ino};
            names.push_back(name);
        }
    }
    // "." and ".." first, as a real directory gives them
    listing->names = {".", ".."};
    listing->types = {dot.first, dotdot.first};
    listing->inodes = {dot.second, dotdot.second};
    for (auto& name : module->order_directory(path, std::move(names))) {
        auto it = details.find(name);
        if (it == details.end())
            continue;
        listing->types.push_back(it->second.first);
        listing->inodes.push_back(it->second.second);
        listing->names.push_back(std::move(name));
    }
    listing->failure = listing_failure(path);
    std::lock_guard lock(tables().mutex);
    tables().listings[dir] = std::move(listing);
}

// The next entry of an ordered stream; false when the stream is not ordered.
template <typename Entry>
bool next_entry(DIR* dir, Entry*& out, Entry Tables::Listing::*slot)
{
    std::lock_guard lock(tables().mutex);
    auto it = tables().listings.find(dir);
    if (it == tables().listings.end())
        return false;
    Tables::Listing& listing = *it->second;
    if (listing.failure && listing.next >= listing.failure->after) {
        errno = listing.failure->err;
        out = nullptr;
        return true;
    }
    if (listing.next >= listing.names.size()) {
        out = nullptr;
        return true;
    }
    Entry& entry = listing.*slot;
    std::memset(&entry, 0, sizeof entry);
    const std::size_t i = listing.next++;
    entry.d_ino = static_cast<decltype(entry.d_ino)>(listing.inodes[i]);
    entry.d_off = static_cast<decltype(entry.d_off)>(listing.next);
    entry.d_reclen = sizeof entry;
    entry.d_type = listing.types[i];
    std::strncpy(entry.d_name, listing.names[i].c_str(), sizeof entry.d_name - 1);
    out = &entry;
    return true;
}

} // namespace
} // namespace preload

EXPORT DIR* opendir(const char* path)
{
    DIR* dir = real::opendir(path);
    if (!dir)
        return dir;
    const int saved = errno;
    Busy busy;
    const std::string where = absolute(AT_FDCWD, path);
    for (Module* module : modules()) {
        if (module->orders_directory(where)) {
            take_listing(dir, module, where);
            break;
        }
    }
    errno = saved;
    return dir;
}

EXPORT dirent* readdir(DIR* dir)
{
    dirent* entry = nullptr;
    if (next_entry(dir, entry, &Tables::Listing::entry))
        return entry;
    static auto real_fn = next<dirent* (*)(DIR*)>("readdir");
    return real_fn(dir);
}

EXPORT dirent64* readdir64(DIR* dir)
{
    dirent64* entry = nullptr;
    if (next_entry(dir, entry, &Tables::Listing::entry64))
        return entry;
    return real::readdir64(dir);
}

EXPORT void rewinddir(DIR* dir) noexcept
{
    {
        std::lock_guard lock(tables().mutex);
        auto it = tables().listings.find(dir);
        if (it != tables().listings.end()) {
            it->second->next = 0;
            return;
        }
    }
    static auto real_fn = next<void (*)(DIR*)>("rewinddir");
    real_fn(dir);
}

EXPORT int closedir(DIR* dir)
{
    {
        std::lock_guard lock(tables().mutex);
        tables().listings.erase(dir);
    }
    return real::closedir(dir);
}
