// The add command: classifies each operand and hands it to the resolver
// that knows that kind of device. A failing operand is reported and the
// others still go on; the mode succeeds when any entry was added.
#include "resolve/add.h"

#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

#include "cli/core/report.h"
#include "resolve/multipath.h"
#include "resolve/real_path.h"
#include "resolve/scsi.h"
#include "resolve/vds.h"
#include "resolve/vds_major.h"

namespace {

constexpr const char *PROC_DEVICES = "/proc/devices";

bool is_special(const struct stat &status)
{
    return S_ISBLK(status.st_mode) || S_ISCHR(status.st_mode);
}

} // namespace

void cut_partition(char *path)
{
    if (strstr(path, "vdsdev"))
        return;
    path[strcspn(path, "0123456789")] = '\0';
}

int parse_hba_addr_conf_add_sub(const char *device_path)
{
    struct stat status;
    std::unique_ptr<char[]> real = get_real_path(device_path, &status);
    if (!real) {
        print_error("illegal device-path %s.\n", device_path);
        log_callee("parse_hba_addr_conf_add_sub", 2148);
        return -1;
    }
    if (!is_special(status)) {
        print_error("illegal device-path %s.\n", device_path);
        return -1;
    }
    // Type and major number stay those of the node before the cut.
    cut_partition(real.get());
    if (is_vds_major(device_major(status.st_rdev)))
        return get_pci_by_vds(device_path, real.get());
    // With the multipath driver present every disk goes through it; a disk
    // it does not manage then fails there.
    if (multipath_mode == MULTIPATH_PRESENT)
        return get_pci_by_kvpath_sysfs(device_path, real.get());
    return get_pci_by_sd(0, device_path, real.get(), -1, 0, 0);
}

int prepare_device_resolution()
{
    struct stat status;
    multipath_mode = stat(MULTIPATH_SYSFS, &status) == 0 ? MULTIPATH_PRESENT : MULTIPATH_ABSENT;

    LineReaderStatus reader_status = 0;
    if (read_vds_majors(PROC_DEVICES, &reader_status) == -1) {
        report_access_failure(PROC_DEVICES, reader_status, 2267);
        return -1;
    }
    return 0;
}

int parse_hba_addr_conf_add(int count, char **operands)
{
    if (prepare_device_resolution() == -1)
        return -1;

    int total = 0;
    for (int i = 0; i < count; i++) {
        const char *operand = operands[i];
        int r = operand[0] == '/' ? parse_hba_addr_conf_add_sub(operand)
                                  : get_pci_by_guess_vds_class(operand);
        if (r != -1)
            total += r;
    }
    return total > 0 ? total : -1;
}
