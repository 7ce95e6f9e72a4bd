// The multipath route. The multipath driver lays out each multipath device
// as /sys/devices/kvpx/kvphN/ and the disks it builds from link there from
// /sys/block/NAME/device; every scsi_host_* file of that directory names
// the SCSI host of one path.
#include "resolve/multipath.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <string_view>
#include <unistd.h>

#include "cli/core/report.h"
#include "resolve/new_entry.h"
#include "resolve/path_buffer.h"
#include "resolve/path_name.h"
#include "lib/unique_dir.h"
#include "lib/unique_fd.h"

int multipath_mode = MULTIPATH_ABSENT;

namespace {

// A busID read from sysfs may have up to 31 characters, more than the 20
// bytes of the SCSI answer allow.
constexpr uint32_t KVPATH_BUSID_LEN = 32;
// The bytes of an entry file that are read for the host number.
constexpr size_t HOST_AREA = 16;
// Reading the multipath device directory failed part-way.
constexpr int SITE_LISTING = 1993;

bool is_alnum(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// Allocates the buffers in order; the site of the first that fails is
// logged under fn.
template <size_t N>
bool alloc_path_buffers(const char *fn, PathBuffer *(&&buffers)[N], const int (&sites)[N])
{
    for (size_t i = 0; i < N; i++) {
        *buffers[i] = alloc_path_buffer();
        if (!*buffers[i]) {
            log_callee(fn, sites[i]);
            return false;
        }
    }
    return true;
}

} // namespace

int query_from_paramf(const char *path, char *busid_out, size_t busid_size)
{
    constexpr const char *FN = "query_from_paramf";
    PathBuffer link_path, target;
    if (!alloc_path_buffers(FN, {&link_path, &target}, {1808, 1813}))
        return -1;
    UniqueFd entry(open(path, O_RDONLY | O_CLOEXEC));
    if (!entry) {
        log_callee(FN, 1822);
        return -1;
    }
    // One byte more than is read stays NUL, so a file of 16 letters and
    // digits still gives a terminated name; no SCSI host has one that
    // long, and the look-up below fails for it like for any unknown host.
    char host[HOST_AREA + 1] = {};
    if (read(entry.get(), host, HOST_AREA) == -1) {
        log_callee(FN, 1827);
        return -1;
    }
    size_t host_len = 0;
    while (is_alnum(host[host_len]))
        host_len++;
    if (!link_path.format("/sys/class/scsi_host/host%.*s/device", static_cast<int>(host_len),
                          host) ||
        !target.read_link(link_path.get())) {
        log_callee(FN, 1846);
        return -1;
    }
    // .../0000:05:00.0/host3: the PCI device is the parent of the host.
    std::string_view pci = path_basename(path_dirname(target.get()));
    snprintf(busid_out, busid_size, "%.*s", static_cast<int>(pci.size()), pci.data());
    return 0;
}

int get_pci_by_kvpath_sysfs(const char *operand, const char *device_node)
{
    constexpr const char *FN = "get_pci_by_kvpath_sysfs";
    PathBuffer dir_path, entry_path, busid, first_word, link_path, target;
    if (!alloc_path_buffers(FN, {&dir_path, &entry_path, &busid, &first_word, &link_path, &target},
                            {1918, 1923, 1928, 1933, 1938, 1943}))
        return -1;

    std::string_view disk = path_basename(device_node);
    if (!link_path.format("/sys/block/%.*s/device", static_cast<int>(disk.size()), disk.data()) ||
        !target.read_link(link_path.get())) {
        log_callee(FN, 1961);
        return -1;
    }
    // .../kvpx/kvph0/...: the multipath device is the kvph component.
    char *kvph = strstr(target.get(), "kvph");
    if (!kvph) {
        log_callee(FN, 1969);
        return -1;
    }
    char *slash = strchr(kvph, '/');
    if (!slash) {
        log_callee(FN, 1973);
        return -1;
    }
    *slash = '\0';
    UniqueDir dir;
    if (dir_path.format("%s/%s/", MULTIPATH_SYSFS, kvph))
        dir.reset(opendir(dir_path.get()));
    if (!dir) {
        log_callee(FN, 1988);
        return -1;
    }

    int count = 0;
    for (;;) {
        // readdir tells its end from its failure by errno alone. A listing
        // cut short would add the paths seen so far as if they were all;
        // the operand fails instead, with a site of its own next to the
        // open's (1988), logged the same way.
        errno = 0;
        const dirent *entry = readdir(dir.get());
        if (!entry) {
            if (errno == 0)
                break;
            log_callee(FN, SITE_LISTING);
            return -1;
        }
        if (!strstr(entry->d_name, "scsi_host_"))
            continue;
        if (!entry_path.format("%s%s", dir_path.get(), entry->d_name) ||
            query_from_paramf(entry_path.get(), busid.get(), busid.size) == -1) {
            log_callee(FN, 2011);
            return -1;
        }
        if (!first_word.format("%s%c%s%ckvpath", operand, ',', device_node, ',') ||
            parse_hba_addr_conf_busid_add(first_word.get(), busid.get(), KVPATH_BUSID_LEN) == -1) {
            log_callee(FN, 2028);
            return -1;
        }
        count++;
    }
    return count;
}
