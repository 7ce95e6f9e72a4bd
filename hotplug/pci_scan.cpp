// The snapshot of every PCI function: one pass over /sys/bus/pci/devices,
// seven header registers per function, each new function put at the head.
#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <new>

#include "hotplug/pci_access.h"
#include "hotplug/pci_regs.h"
#include "lib/unique_dir.h"

namespace {

void set(uint32_t *code, uint32_t value)
{
    if (code)
        *code = value;
}

// The seven header reads, in the order the registers lie; 0 or the code.
uint32_t read_header(PciFunction &f)
{
    uint32_t code = 0;
    if (pci_read16(f, &f.vendor_id, PCI_VENDOR_ID, &code) &&
        pci_read16(f, &f.device_id, PCI_DEVICE_ID, &code) &&
        pci_read8(f, &f.revision_id, PCI_REVISION_ID, &code) &&
        pci_read8(f, &f.prog_if, PCI_CLASS_PROG, &code) &&
        pci_read8(f, &f.subclass, PCI_CLASS_DEVICE, &code) &&
        pci_read8(f, &f.base_class, PCI_CLASS_CODE, &code) &&
        pci_read8(f, &f.header_type, PCI_HEADER_TYPE, &code))
        return 0;
    return code;
}

// One directory entry: 0 when it was taken or skipped, else the reason
// (without PCI_SCAN_FAILED).
uint32_t scan_entry(PciSnap &snap, const char *name)
{
    uint16_t domain;
    uint8_t bus, device, function;
    if (sscanf(name, "%hx:%hhx:%hhx.%hhx", &domain, &bus, &device, &function) != 4)
        return PCI_ERR_NAME;

    // Built in a list of its own, so that splicing it into the snapshot
    // keeps its address (the descriptor cache refers to it).
    PciFunctionList pending;
    try {
        pending.emplace_back();
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return PCI_ERR_NO_FUNCTION;
    }
    PciFunction &f = pending.front();
    try {
        f.config_path = std::string(PCI_DEVICES_DIR) + "/" + name + "/" + "config";
    } catch (const std::bad_alloc &) {
        pending.clear();
        errno = ENOMEM;
        return PCI_ERR_NO_PATH;
    }
    f.snap = &snap;
    f.domain = domain;
    f.bus = bus;
    f.device = device;
    f.function = function;

    if (uint32_t code = read_header(f)) {
        pci_function_free(pending, pending.begin());
        return code | PCI_SCAN_HEADER;
    }
    if (f.vendor_id == PCI_VENDOR_NONE) {
        pci_function_free(pending, pending.begin());
        return 0;
    }
    snap.functions.splice(snap.functions.begin(), pending);
    return 0;
}

} // namespace

std::unique_ptr<PciSnap> pci_snap_init(uint32_t *code)
{
    std::unique_ptr<PciSnap> snap(new (std::nothrow) PciSnap);
    if (!snap) {
        set(code, PCI_ERR_NO_SNAP);
        errno = ENOMEM;
    }
    return snap;
}

void pci_function_free(PciFunctionList &owner, PciFunctionList::iterator it)
{
    PciSnap *snap = it->snap;
    if (snap)
        snap->by_address.clear();  // rebuilt on the next look-up
    if (snap && snap->cached_function == &*it) {
        snap->cached_fd.reset();
        snap->cached_function = nullptr;
        snap->cached_direction = PCI_DIR_NONE;
    }
    owner.erase(it);
}

bool pci_scan(PciSnap &snap, uint32_t *code)
{
    UniqueDir dir(opendir(PCI_DEVICES_DIR));
    if (!dir) {
        set(code, PCI_ERR_OPENDIR);  // bare: nothing was scanned
        return false;
    }
    const int saved = errno;
    for (;;) {
        // readdir tells its end from its failure by errno alone.
        errno = 0;
        const dirent *entry = readdir(dir.get());
        if (!entry) {
            if (errno == 0) {
                errno = saved;
                return true;
            }
            set(code, PCI_ERR_READDIR | PCI_SCAN_FAILED);
            return false;
        }
        if (entry->d_name[0] == '.')
            continue;
        if (uint32_t failure = scan_entry(snap, entry->d_name)) {
            set(code, failure | PCI_SCAN_FAILED);
            return false;
        }
    }
}
