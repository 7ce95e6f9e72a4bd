#include "cli/core/companion.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <getopt.h>
#include <unistd.h>

#include "cli/core/lock_holder.h"
#include "cli/core/report.h"
#include "cli/core/run_lock.h"
#include "cli/core/user_log.h"

namespace {

// Never used for a file: the handle only needs valid limits.
constexpr int32_t LOG_SIZE_LIMIT = 0x100000;
constexpr int32_t LOG_GENERATIONS = 4;

} // namespace

bool start_companion()
{
    if (geteuid() != 0) {
        print_error("must run as root.\n");
        return false;
    }
    uint32_t code = 0;
    g_user_log = user_log_open(program_invocation_short_name, nullptr, LOG_SIZE_LIMIT,
                               LOG_GENERATIONS, &code);
    if (!g_user_log) {
        print_error("initialization failed(%x).\n", code);
        return false;
    }
    tell_run_lock_holder();
    return take_run_lock() == RunLock::HELD;
}

bool stdout_flushed() { return fflush(stdout) == 0 && !ferror(stdout); }

bool output_written(bool written)
{
    if (!written)
        print_error("standard output: %s.\n", strerror(errno != 0 ? errno : EIO));
    return written;
}

void report_unknown_option(char **argv)
{
    if (optopt > 0 && optopt < 256)
        print_error("unknown option -%c.\n", optopt);
    else
        print_error("unknown option %s.\n", argv[optind - 1]);
}
