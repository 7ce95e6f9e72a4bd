// Volume-manager resolution. The query command prints one line per disk
// that starts with the word "disk"; its sixth field is the disk's device
// name under /dev. Without the multipath driver each disk is asked for
// through the volume manager's diagnostic device, which reaches the disks
// the volume manager has claimed.
#include "resolve/vds.h"

#include <cstring>
#include <fcntl.h>
#include <initializer_list>
#include <new>
#include <string_view>
#include <sys/stat.h>

#include "cli/core/open_retry.h"
#include "cli/core/report.h"
#include "resolve/multipath.h"
#include "resolve/path_name.h"
#include "resolve/real_path.h"
#include "resolve/scsi.h"
#include "lib/unique_fd.h"
#include "resolve/vdsstat.h"
#include "table/token_list.h"

namespace {

constexpr const char *QUERY_OPTION = "-D";
constexpr uint32_t DISK_NAME_FIELD = 6;

// The query's output, reduced to the wanted fields of its "disk" lines.
// It belongs to one operation and goes with it, the fields that name no
// disk (2 and 4 of the class query) included: nothing reads them later.
struct QueryOutput {
    TokenList tokens;
    TokenCollector collector;
    LineReaderCallbacks callbacks;

    explicit QueryOutput(std::initializer_list<uint32_t> fields)
        : callbacks{token_list_init, token_list_append, select_columns, &collector}
    {
        collector.list = &tokens;
        collector.key = "disk";
        uint32_t i = 0;
        for (uint32_t f : fields)
            collector.columns[i++] = f;
    }
    QueryOutput(const QueryOutput &) = delete;
    QueryOutput &operator=(const QueryOutput &) = delete;
};

// Where each step of resolving the listed disks reports a failure.
struct DiskSites {
    int no_buffer;
    int no_diag;
};

// Resolves every disk name of the output, one after the other, through
// one descriptor of the diagnostic device. The first disk that fails ends
// the operand; the lines of the disks before it stay in the table.
int resolve_listed_disks(const char *fn, DiskSites sites, const char *operand,
                         const TokenList &tokens)
{
    PathBuffer path_buffer = alloc_path_buffer();
    if (!path_buffer) {
        log_callee(fn, sites.no_buffer);
        return -1;
    }
    UniqueFd diag(open_retry(VDS_DIAG_DEVICE, O_RDWR | O_NONBLOCK));
    if (!diag) {
        log_callee(fn, sites.no_diag);
        return -1;
    }
    int count = 0;
    for (const LineToken &t : tokens) {
        if (t.field != DISK_NAME_FIELD)  // fields 2 and 4 of the class query
            continue;
        int r = get_pci_by_vds_sub(diag.get(), operand, t.text.c_str(), path_buffer);
        if (r == -1)
            return -1;
        count += r;
    }
    return count;
}

std::unique_ptr<char[]> copy_text(std::string_view text)
{
    std::unique_ptr<char[]> copy(new (std::nothrow) char[text.size() + 1]);
    if (copy) {
        memcpy(copy.get(), text.data(), text.size());
        copy[text.size()] = '\0';
    }
    return copy;
}

} // namespace

const char *build_absolute_dev_path(const char *name, PathBuffer &buffer)
{
    return buffer.format("/dev/%s", name) ? buffer.get() : nullptr;
}

int split_vds_path(const char *path, std::unique_ptr<char[]> &class_out,
                   std::unique_ptr<char[]> &volume_out)
{
    // Views of the path itself: no working copies are needed.
    std::string_view vds_class = path_basename(path_dirname(path_dirname(path)));
    std::string_view volume = path_basename(path);
    std::unique_ptr<char[]> c = copy_text(vds_class);
    if (!c) {
        report_no_resources(vds_class.size() + 1, 1096);
        return -1;
    }
    std::unique_ptr<char[]> v = copy_text(volume);
    if (!v) {
        report_no_resources(volume.size() + 1, 1104);
        return -1;
    }
    class_out = std::move(c);
    volume_out = std::move(v);
    return 0;
}

int get_pci_by_vds_sub(int diag_fd, const char *operand, const char *disk_name,
                       PathBuffer &path_buffer)
{
    struct stat status;
    const char *node = build_absolute_dev_path(disk_name, path_buffer);
    std::unique_ptr<char[]> real = node ? get_real_path(node, &status) : nullptr;
    if (!real) {
        log_callee("get_pci_by_vds_sub", 1309);
        return -1;
    }
    if (!S_ISBLK(status.st_mode) && !S_ISCHR(status.st_mode))
        return -1;
    // The whole node is used: the volume manager names whole disks.
    int r;
    if (multipath_mode == MULTIPATH_PRESENT) {
        r = get_pci_by_kvpath_sysfs(operand, real.get());
    } else {
        const uint64_t dev = status.st_rdev;
        r = get_pci_by_sd(1, operand, real.get(), diag_fd, static_cast<uint32_t>(dev),
                          static_cast<uint32_t>(dev >> 32));
    }
    if (r == -1)
        log_err("callee %d\n", 1343);
    return r;
}

int get_pci_by_vds(const char *operand, const char *canonical_path)
{
    constexpr const char *FN = "get_pci_by_vds";
    std::unique_ptr<char[]> vds_class, volume;
    if (split_vds_path(canonical_path, vds_class, volume) == -1)
        return -1;
    QueryOutput output({DISK_NAME_FIELD});
    if (run_vdsstat_volume(QUERY_OPTION, vds_class.get(), volume.get(), &output.callbacks) == -1) {
        log_callee(FN, 1401);
        return -1;
    }
    return resolve_listed_disks(FN, {1408, 1415}, operand, output.tokens);
}

int get_pci_by_guess_vds_class(const char *class_name)
{
    constexpr const char *FN = "get_pci_by_guess_vds_class";
    QueryOutput output({2, 4, DISK_NAME_FIELD});
    struct stat status;
    if (!get_real_path(VDSSTAT, &status)) {
        log_callee(FN, 1493);
        print_error("illegal class-name %s.\n", class_name);
        return -1;
    }
    if (run_vdsstat_class(QUERY_OPTION, class_name, &output.callbacks) == -1) {
        log_callee(FN, 1502);
        print_error("illegal class-name %s.\n", class_name);
        return -1;
    }
    return resolve_listed_disks(FN, {1511, 1518}, class_name, output.tokens);
}
