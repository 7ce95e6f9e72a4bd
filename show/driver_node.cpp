#include "show/driver_node.h"

#include <cerrno>
#include <sys/stat.h>

#include "cli/core/report.h"
#include "hotplug/driver.h"

namespace {

const char *kind_of(mode_t mode)
{
    switch (mode & S_IFMT) {
    case S_IFLNK: return "a symbolic link";
    case S_IFREG: return "a regular file";
    case S_IFDIR: return "a directory";
    case S_IFBLK: return "a block device";
    case S_IFIFO: return "a FIFO";
    case S_IFSOCK: return "a socket";
    default: return "of an unknown kind";
    }
}

} // namespace

std::unique_ptr<PlanProblem> check_driver_node(const char **kind)
{
    *kind = nullptr;
    struct stat st;
    auto problem = std::make_unique<PlanProblem>(
        PlanProblem{PlanStage::DRIVER, 0, nullptr, BusIdWord::NONE, {}});
    if (lstat(SLOTAG_DEVICE, &st) != 0) {
        // The open would fail alike: say what slotag -r would say.
        CapturedMessages said;
        {
            ReportCapture capture(said);
            report_io_error(SLOTAG_DEVICE, errno, DRIVER_OPEN_SITE);
        }
        problem->site = said.first_site;
        problem->messages = std::move(said.lines);
        return problem;
    }
    if (S_ISCHR(st.st_mode))
        return nullptr;
    *kind = kind_of(st.st_mode);
    return problem;
}
