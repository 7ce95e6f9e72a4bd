// The SCSI route from a disk to the busID of its host bus adapter.
#include "resolve/scsi.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <sys/ioctl.h>

#include "cli/core/open_retry.h"
#include "cli/core/report.h"
#include "lib/low_memory.h"
#include "resolve/new_entry.h"
#include "resolve/path_buffer.h"
#include "lib/unique_fd.h"

namespace {

constexpr const char *FN = "get_pci_by_sd";

// The request and the answer it points at, both in one area below 4 GiB.
struct VdsDiagRelay {
    VdsDiagRequest request;
    char answer[SCSI_PCI_NAME_SIZE];
};

// The answer arrives in `name`, which the caller has cleared: a name shorter
// than the buffer then reads as a terminated string. 0 or -1 (reported).
int ask_disk(const char *operand, const char *device_node, char *name)
{
    UniqueFd disk(open_retry(device_node, O_RDONLY | O_NONBLOCK));
    if (!disk) {
        log_callee(FN, 1726);
        return -1;
    }
    if (ioctl(disk.get(), SCSI_IOCTL_GET_PCI, name) == -1) {
        report_io_error(operand, errno, 1742);
        return -1;
    }
    return 0;
}

int ask_volume_manager(int diag_fd, uint32_t dev_low, uint32_t dev_high, char *name)
{
    // The driver only gets a 32-bit address of the answer; in a 64-bit
    // program that address is only right when the answer lies below 4 GiB.
    LowMemory area = LowMemory::allocate(sizeof(VdsDiagRelay));
    if (!area) {
        // 1731 names this place: the only one that needs low memory.
        report_no_resources(sizeof(VdsDiagRelay), 1731);
        return -1;
    }
    auto *relay = new (area.get()) VdsDiagRelay{};
    relay->request = {dev_low, dev_high, SCSI_IOCTL_GET_PCI, low_address(relay->answer)};
    if (ioctl(diag_fd, VDS_DIAG_REQUEST, &relay->request) == -1) {
        report_io_error(VDS_DIAG_DEVICE, errno, 1744);
        return -1;
    }
    memcpy(name, relay->answer, SCSI_PCI_NAME_SIZE);
    return 0;
}

} // namespace

int get_pci_by_sd(int via_vds, const char *operand, const char *device_node, int diag_fd,
                  uint32_t dev_low, uint32_t dev_high)
{
    PathBuffer first_word = alloc_path_buffer();
    if (!first_word) {
        log_callee(FN, 1718);
        return -1;
    }
    char name[SCSI_PCI_NAME_SIZE] = {};
    int asked = via_vds ? ask_volume_manager(diag_fd, dev_low, dev_high, name)
                        : ask_disk(operand, device_node, name);
    if (asked == -1)
        return -1;
    // A first word that overflows the buffer could not be loaded again
    // either (it is longer than any word the line reader accepts).
    if (!first_word.format("%s%c%s", operand, ',', device_node) ||
        parse_hba_addr_conf_busid_add(first_word.get(), name, SCSI_PCI_NAME_SIZE) == -1) {
        log_callee(FN, 1759);
        return -1;
    }
    return 1;
}
