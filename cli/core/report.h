// One uniform way to report: a failure the user should see goes to standard
// error with "ERROR: " and to the operation log at ERR without it; progress
// goes to the log at INFO. None of these functions changes errno.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

void log_info(const char *format, ...) __attribute__((format(printf, 1, 2)));
void log_err(const char *format, ...) __attribute__((format(printf, 1, 2)));
// Standard error only, with the "ERROR: " prefix.
void print_error(const char *format, ...) __attribute__((format(printf, 1, 2)));
// Standard error with the prefix, and the log at ERR without it.
void report_error(const char *format, ...) __attribute__((format(printf, 1, 2)));

// The fixed message shapes.
void report_fatal(unsigned site);                                   // there was a fatal error(%x)
void report_no_resources(unsigned long long amount, unsigned site); // lack of resources(%llx:%x)
void report_io_error(const char *name, int err, unsigned site);     // %s: an input/output error has occurred(%x:%x)
void report_access_failure(const char *name, uint32_t status, unsigned site); // %s: failed to access file(%x:%x)
void log_callee(const char *function, int site);                    // callee %s(%d)

// report_error with the site number its text carries, for messages that
// name their site in a format of their own.
void report_site_error(unsigned site, const char *format, ...)
    __attribute__((format(printf, 2, 3)));

// What a report capture gathered: the texts of the failure messages (the
// standard error lines without "ERROR: ", and the ERR log lines), and the
// site number of the first message that named one (0: none yet).
struct CapturedMessages {
    std::vector<std::string> lines;
    unsigned first_site = 0;
};

// While one is alive, failure messages go to `into` instead of standard
// error and the log, and progress lines are dropped: a companion command can
// run the registration's own checks and show what they would have said.
class ReportCapture {
public:
    explicit ReportCapture(CapturedMessages &into);
    ~ReportCapture();
    ReportCapture(const ReportCapture &) = delete;
    ReportCapture &operator=(const ReportCapture &) = delete;

private:
    CapturedMessages *previous_;
};
