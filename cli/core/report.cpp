// Reporting: every message is formatted by the caller's printf format; the
// log twin is written through the process-wide log handle.
#include "cli/core/report.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

#include "cli/core/user_log.h"

namespace {

CapturedMessages *g_capture = nullptr;

__attribute__((format(printf, 1, 0))) void capture(const char *format, va_list args)
{
    char text[1024];
    int n = vsnprintf(text, sizeof text, format, args);
    if (n < 0)
        return;
    size_t len = strnlen(text, sizeof text);
    if (len > 0 && text[len - 1] == '\n')
        len--;  // a line of its own in the capture
    try {
        g_capture->lines.emplace_back(text, len);
    } catch (const std::bad_alloc &) {
        // A message that cannot be kept is lost, as a failed log write is.
    }
}

void note_site(unsigned site)
{
    if (g_capture && g_capture->first_site == 0)
        g_capture->first_site = site;
}

__attribute__((format(printf, 2, 0))) void vlog(int level, const char *format, va_list args)
{
    if (g_capture) {
        if (level == USER_LOG_ERR)
            capture(format, args);
        return;
    }
    user_log_vwrite(g_user_log, USER_LOG_FILE, level, nullptr, format, args);
}

__attribute__((format(printf, 1, 0))) void vprint_error(const char *format, va_list args)
{
    if (g_capture) {
        capture(format, args);
        return;
    }
    fputs("ERROR: ", stderr);
    vfprintf(stderr, format, args);
}

// Standard error with the prefix and the log twin; a capture keeps one line,
// the two twins saying the same.
__attribute__((format(printf, 1, 0))) void vreport(const char *format, va_list args)
{
    if (g_capture) {
        capture(format, args);
        return;
    }
    va_list again;
    va_copy(again, args);
    vprint_error(format, args);
    vlog(USER_LOG_ERR, format, again);
    va_end(again);
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
    vreport(format, args);
    va_end(args);
    errno = saved;
}

void report_site_error(unsigned site, const char *format, ...)
{
    int saved = errno;
    note_site(site);
    va_list args;
    va_start(args, format);
    vreport(format, args);
    va_end(args);
    errno = saved;
}

void report_fatal(unsigned site) { report_site_error(site, "there was a fatal error(%x).\n", site); }

void report_no_resources(unsigned long long amount, unsigned site)
{
    report_site_error(site, "lack of resources(%llx:%x).\n", amount, site);
}

void report_io_error(const char *name, int err, unsigned site)
{
    report_site_error(site, "%s: an input/output error has occurred(%x:%x).\n", name,
                      static_cast<unsigned>(err), site);
}

void report_access_failure(const char *name, uint32_t status, unsigned site)
{
    report_site_error(site, "%s: failed to access file(%x:%x).\n", name, status, site);
}

void log_callee(const char *function, int site) { log_err("callee %s(%d).\n", function, site); }

ReportCapture::ReportCapture(CapturedMessages &into) : previous_(g_capture) { g_capture = &into; }

ReportCapture::~ReportCapture() { g_capture = previous_; }
