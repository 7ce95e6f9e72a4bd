// Reporting: every message is formatted by the caller's printf format; the
// log twin is written through the process-wide log handle.
#include "cli/report.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "cli/user_log.h"

namespace {

__attribute__((format(printf, 2, 0))) void vlog(int level, const char *format, va_list args)
{
    user_log_vwrite(g_user_log, USER_LOG_FILE, level, nullptr, format, args);
}

__attribute__((format(printf, 1, 0))) void vprint_error(const char *format, va_list args)
{
    fputs("ERROR: ", stderr);
    vfprintf(stderr, format, args);
}

} // namespace

void log_info(const char *format, ...)
{
    int saved = errno;
    va_list args;
    va_start(args, format);
    vlog(USER_LOG_INFO, format, args);
    va_end(args);
    errno = saved;
}

void log_err(const char *format, ...)
{
    int saved = errno;
    va_list args;
    va_start(args, format);
    vlog(USER_LOG_ERR, format, args);
    va_end(args);
    errno = saved;
}

void print_error(const char *format, ...)
{
    int saved = errno;
    va_list args;
    va_start(args, format);
    vprint_error(format, args);
    va_end(args);
    errno = saved;
}

void report_error(const char *format, ...)
{
    int saved = errno;
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    vprint_error(format, args);
    vlog(USER_LOG_ERR, format, again);
    va_end(again);
    va_end(args);
    errno = saved;
}

void report_fatal(unsigned site) { report_error("there was a fatal error(%x).\n", site); }

void report_no_resources(unsigned long long amount, unsigned site)
{
    report_error("lack of resources(%llx:%x).\n", amount, site);
}

void report_io_error(const char *name, int err, unsigned site)
{
    report_error("%s: an input/output error has occurred(%x:%x).\n", name,
                 static_cast<unsigned>(err), site);
}

void report_access_failure(const char *name, uint32_t status, unsigned site)
{
    report_error("%s: failed to access file(%x:%x).\n", name, status, site);
}

void log_callee(const char *function, int site) { log_err("callee %s(%d).\n", function, site); }
