// A test helper, preloaded beside the simulator's library: it counts the
// program's allocations (malloc, calloc, realloc and every operator new) and
// makes one of them fail, so that each "lack of resources" path of the tool
// can be driven from its command line. Never part of the product.
//
// Environment, read and then removed here (the query command the tool
// starts must not inherit it):
//   SLOTAG_INJECT_FAIL=N      fail the Nth counted allocation (from 1); 0 or
//                             unset: fail none, only count
//   SLOTAG_INJECT_SIZES=LO-HI count only allocations of LO to HI bytes
//   SLOTAG_INJECT_REPORT=FILE at exit append "allocations K" and, when one
//                             failed, "failed N size S at LIBRARY+OFFSET"
//
// Only a program run by the simulator counts (its library, which exports
// slotag_sim_busy, is loaded too). Not counted: anything before this
// library's constructor, anything while the simulator's library is at work,
// the allocations the C++ runtime makes inside an operator new already
// counted, and anything in a child after fork.
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <new>
#include <pthread.h>
#include <sys/syscall.h>
#include <type_traits>
#include <unistd.h>

extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
}

namespace {

using MallocFn = void *(*)(size_t);
using CallocFn = void *(*)(size_t, size_t);
using ReallocFn = void *(*)(void *, size_t);

bool active = false;
unsigned long fail_at = 0;
size_t size_low = 0;
size_t size_high = SIZE_MAX;
char report_path[4096];

unsigned long counted = 0;
unsigned long failed_number = 0;
size_t failed_size = 0;
const void *failed_caller = nullptr;

int *sim_busy = nullptr;
thread_local int inside = 0;  // an allocation of ours is under way

// The allocator behind this library: the C library's, or a sanitizer's when
// the program has one (its free must get its own memory back).
MallocFn next_malloc = nullptr;
CallocFn next_calloc = nullptr;
ReallocFn next_realloc = nullptr;
bool resolving = false;

// The C++ runtime's (or the sanitizer's) operator new, by mangled name.
enum NewKind { NEW_SCALAR, NEW_ARRAY, NEW_SCALAR_NOTHROW, NEW_ARRAY_NOTHROW };
constexpr bool SIZE_IS_LONG = std::is_same_v<size_t, unsigned long>;  // else unsigned int
const char *const NEW_NAMES[4] = {
    SIZE_IS_LONG ? "_Znwm" : "_Znwj",
    SIZE_IS_LONG ? "_Znam" : "_Znaj",
    SIZE_IS_LONG ? "_ZnwmRKSt9nothrow_t" : "_ZnwjRKSt9nothrow_t",
    SIZE_IS_LONG ? "_ZnamRKSt9nothrow_t" : "_ZnajRKSt9nothrow_t",
};
using ThrowingNew = void *(*)(size_t);
using NothrowNew = void *(*)(size_t, const std::nothrow_t &);
void *next_new[4];

void *next_new_fn(NewKind kind)
{
    if (!next_new[kind])
        next_new[kind] = dlsym(RTLD_NEXT, NEW_NAMES[kind]);
    return next_new[kind];
}

void resolve()
{
    if (next_malloc || resolving)
        return;
    resolving = true;
    if (dlsym(RTLD_DEFAULT, "__asan_init")) {
        next_malloc = reinterpret_cast<MallocFn>(dlsym(RTLD_NEXT, "malloc"));
        next_calloc = reinterpret_cast<CallocFn>(dlsym(RTLD_NEXT, "calloc"));
        next_realloc = reinterpret_cast<ReallocFn>(dlsym(RTLD_NEXT, "realloc"));
    } else {
        next_calloc = __libc_calloc;
        next_realloc = __libc_realloc;
        next_malloc = __libc_malloc;
    }
    resolving = false;
}

// Decides for one allocation of `size` bytes made from `caller`.
bool should_fail(size_t size, const void *caller)
{
    if (!active || inside || (sim_busy && *sim_busy) || size < size_low || size > size_high)
        return false;
    ++counted;
    if (counted != fail_at)
        return false;
    failed_number = counted;
    failed_size = size;
    failed_caller = caller;
    return true;
}

// The runtime's own operator new does the allocating (and throwing), so
// that its operator delete gets back memory of its own kind; what it asks
// of malloc meanwhile is not counted again.
void *counted_new(NewKind kind, size_t size, const void *caller)
{
    if (should_fail(size, caller)) {
        if (kind == NEW_SCALAR_NOTHROW || kind == NEW_ARRAY_NOTHROW)
            return nullptr;
        // Like the runtime: ask the new-handler, then give up.
        if (std::new_handler handler = std::get_new_handler())
            handler();
        else
            throw std::bad_alloc();
    }
    void *fn = next_new_fn(kind);
    if (!fn)
        abort();
    ++inside;
    void *p;
    if (kind == NEW_SCALAR_NOTHROW || kind == NEW_ARRAY_NOTHROW) {
        p = reinterpret_cast<NothrowNew>(fn)(size, std::nothrow);
    } else {
        try {
            p = reinterpret_cast<ThrowingNew>(fn)(size);
        } catch (...) {
            --inside;
            throw;
        }
    }
    --inside;
    return p;
}

// The report is written at exit, after the simulator's library may have
// torn itself down: straight to the kernel, past its hooks.
void put(int fd, const char *line, int n)
{
    if (n > 0 && syscall(SYS_write, fd, line, static_cast<size_t>(n)) != n)
        return;  // the test sees a report without this line
}

void write_report()
{
    if (!report_path[0])
        return;
    int fd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, report_path,
                                      O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
    if (fd == -1)
        return;
    char line[512];
    int n = snprintf(line, sizeof line, "allocations %lu\n", counted);
    put(fd, line, n);
    if (failed_number) {
        Dl_info info{};
        const char *where = "?";
        uintptr_t offset = 0;
        if (dladdr(failed_caller, &info) && info.dli_fname) {
            where = strrchr(info.dli_fname, '/') ? strrchr(info.dli_fname, '/') + 1 : info.dli_fname;
            offset = reinterpret_cast<uintptr_t>(failed_caller) -
                     reinterpret_cast<uintptr_t>(info.dli_fbase);
        }
        n = snprintf(line, sizeof line, "failed %lu size %zu at %s+0x%zx\n", failed_number,
                     failed_size, where, static_cast<size_t>(offset));
        put(fd, line, n);
    }
    syscall(SYS_close, fd);
}

void stop_counting() { active = false; }

unsigned long number_from(const char *text)
{
    return text ? strtoul(text, nullptr, 10) : 0;
}

__attribute__((constructor)) void start()
{
    resolve();
    const char *fail = getenv("SLOTAG_INJECT_FAIL");
    const char *sizes = getenv("SLOTAG_INJECT_SIZES");
    const char *report = getenv("SLOTAG_INJECT_REPORT");
    // Only in the program the simulator runs, which has its library: the
    // simulator itself is started with this library preloaded too, and
    // must pass the settings on untouched.
    sim_busy = static_cast<int *>(dlsym(RTLD_DEFAULT, "slotag_sim_busy"));
    if ((!fail && !report) || !sim_busy)
        return;
    fail_at = number_from(fail);
    if (sizes) {
        char *end = nullptr;
        size_low = strtoul(sizes, &end, 10);
        size_high = end && *end == '-' ? strtoul(end + 1, nullptr, 10) : size_low;
    }
    if (report)
        snprintf(report_path, sizeof report_path, "%s", report);
    unsetenv("SLOTAG_INJECT_FAIL");
    unsetenv("SLOTAG_INJECT_SIZES");
    unsetenv("SLOTAG_INJECT_REPORT");
    pthread_atfork(nullptr, nullptr, stop_counting);
    active = true;
}

__attribute__((destructor)) void finish()
{
    if (active) {
        active = false;
        write_report();
    }
}

} // namespace

extern "C" {

void *malloc(size_t size)
{
    resolve();
    if (!next_malloc)  // only while the allocator is being looked up
        return __libc_malloc(size);
    if (should_fail(size, __builtin_return_address(0))) {
        errno = ENOMEM;
        return nullptr;
    }
    return next_malloc(size);
}

void *calloc(size_t count, size_t size)
{
    resolve();
    if (!next_calloc)
        return __libc_calloc(count, size);
    if (should_fail(count * size, __builtin_return_address(0))) {
        errno = ENOMEM;
        return nullptr;
    }
    return next_calloc(count, size);
}

void *realloc(void *old, size_t size)
{
    resolve();
    if (!next_realloc)
        return __libc_realloc(old, size);
    if (size != 0 && should_fail(size, __builtin_return_address(0))) {
        errno = ENOMEM;
        return nullptr;
    }
    return next_realloc(old, size);
}

} // extern "C"

void *operator new(size_t size) { return counted_new(NEW_SCALAR, size, __builtin_return_address(0)); }
void *operator new[](size_t size)
{
    return counted_new(NEW_ARRAY, size, __builtin_return_address(0));
}
void *operator new(size_t size, const std::nothrow_t &) noexcept
{
    return counted_new(NEW_SCALAR_NOTHROW, size, __builtin_return_address(0));
}
void *operator new[](size_t size, const std::nothrow_t &) noexcept
{
    return counted_new(NEW_ARRAY_NOTHROW, size, __builtin_return_address(0));
}
