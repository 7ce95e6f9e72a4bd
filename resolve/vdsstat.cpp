// Running the query command. A failed query is logged with its whole
// command line and wait status so the volume manager's side can be checked.
#include "resolve/vdsstat.h"

#include <array>
#include <cstddef>

#include "cli/core/options.h"
#include "cli/core/report.h"
#include "resolve/child_command.h"

namespace {

// Logged as the wait status when the runner failed before it waited for
// the child (time-out, unreadable output, pipe or fork failure): no real
// wait status has every bit set, so the log cannot be misread as an exit.
constexpr int32_t NO_WAIT_STATUS = -1;

class QueryCommand {
public:
    QueryCommand(const char *option, const char *vds_class, const char *volume)
    {
        size_t n = 0;
        args_[n++] = VDSSTAT;
        if (option)
            args_[n++] = option;
        if (vds_class) {
            args_[n++] = "-c";
            args_[n++] = vds_class;
        }
        if (volume) {
            args_[n++] = "-o";
            args_[n++] = volume;
        }
    }

    // Runs it; *status and *failed as exec_child_command leaves them.
    int run(const LineReaderCallbacks *callbacks)
    {
        // execv takes char *const[] but changes none of the strings.
        return exec_child_command(VDSSTAT, const_cast<char *const *>(args_.data()),
                                  option_timeout_ms(), callbacks, &status, &failed);
    }

    // Argument i for the log; the unused slots are null.
    const char *shown(size_t i) const { return args_[i] ? args_[i] : "(null)"; }

    int32_t status = NO_WAIT_STATUS;
    uint32_t failed = 0;

private:
    // The program, three option pairs at most, and the end marker.
    std::array<const char *, 7> args_{};
};

} // namespace

int run_vdsstat_volume(const char *option, const char *vds_class, const char *volume,
                       const LineReaderCallbacks *callbacks)
{
    QueryCommand query(option, vds_class, volume);
    if (query.run(callbacks) == -1) {
        report_access_failure(VDSSTAT, query.failed, 1194);
        log_err("%s %s %s %s %s %s ret 0x%x.\n", query.shown(0), query.shown(1), query.shown(2),
                query.shown(3), query.shown(4), query.shown(5),
                static_cast<unsigned>(query.status));
        return -1;
    }
    return 0;
}

int run_vdsstat_class(const char *option, const char *vds_class,
                      const LineReaderCallbacks *callbacks)
{
    QueryCommand query(option, vds_class, nullptr);
    // A class the volume manager does not know makes the command exit
    // with an error code, so the code decides here.
    bool exited_0 = query.run(callbacks) == 0 && (query.status & 0xff7f) == 0;
    if (!exited_0) {
        log_err("%s %s %s %s 0x%x.\n", query.shown(0), query.shown(1), query.shown(2),
                query.shown(3), static_cast<unsigned>(query.status));
        return -1;
    }
    return 0;
}
