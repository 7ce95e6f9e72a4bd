// PCI configuration space through sysfs: one snapshot of every function with
// a few header registers, and aligned 8/16/32-bit reads and writes at any
// offset of a function in it. Nothing is printed or logged here: failures
// come back as a status code (and errno) for the caller to word.
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "lib/unique_fd.h"

// Status code, bits 0-7: the reason.
constexpr uint32_t PCI_ERR_ALIGN = 1;        // offset not a multiple of the width (EINVAL)
constexpr uint32_t PCI_ERR_DIRECTION = 2;    // neither read nor write (EINVAL)
constexpr uint32_t PCI_ERR_OPEN = 3;
constexpr uint32_t PCI_ERR_PREAD = 4;
constexpr uint32_t PCI_ERR_PWRITE = 5;
constexpr uint32_t PCI_ERR_SHORT = 6;        // not exactly the width transferred (ENXIO)
constexpr uint32_t PCI_ERR_NAME = 7;         // directory entry is not DDDD:BB:DD.F
constexpr uint32_t PCI_ERR_NO_FUNCTION = 8;  // ENOMEM
constexpr uint32_t PCI_ERR_NO_PATH = 9;      // ENOMEM
constexpr uint32_t PCI_ERR_OPENDIR = 10;
constexpr uint32_t PCI_ERR_NO_SNAP = 11;     // ENOMEM
// Reading the directory failed part-way (errno of readdir). A scan that
// went on would register against part of the machine, so it fails like an
// entry it cannot take, with the next reason number and PCI_SCAN_FAILED.
constexpr uint32_t PCI_ERR_READDIR = 12;
// Bits 8-15: the accessor that failed.
constexpr uint32_t PCI_ACC_READ8 = 0x100;
constexpr uint32_t PCI_ACC_READ16 = 0x200;
constexpr uint32_t PCI_ACC_READ32 = 0x400;
constexpr uint32_t PCI_ACC_WRITE8 = 0x1000;
constexpr uint32_t PCI_ACC_WRITE16 = 0x2000;
constexpr uint32_t PCI_ACC_WRITE32 = 0x4000;
// Bits 16-17: where in the scan.
constexpr uint32_t PCI_SCAN_HEADER = 0x10000;
constexpr uint32_t PCI_SCAN_FAILED = 0x20000;

// Access directions; PCI_DIR_NONE matches neither, so nothing is cached.
constexpr uint32_t PCI_DIR_READ = 0;
constexpr uint32_t PCI_DIR_WRITE = 1;
constexpr uint32_t PCI_DIR_NONE = 128;

constexpr const char *PCI_DEVICES_DIR = "/sys/bus/pci/devices";

struct PciSnap;

// One function, i.e. one entry of /sys/bus/pci/devices. The header values
// are captured by the scan; everything else is read live.
struct PciFunction {
    PciSnap *snap = nullptr;  // holds the shared descriptor cache
    std::string config_path;
    uint16_t domain = 0;
    uint8_t bus = 0;
    uint8_t device = 0;
    uint8_t function = 0;
    uint16_t vendor_id = 0;
    uint16_t device_id = 0;
    uint8_t revision_id = 0;
    uint8_t prog_if = 0;
    uint8_t subclass = 0;
    uint8_t base_class = 0;
    uint8_t header_type = 0;
};

using PciFunctionList = std::list<PciFunction>;

// The snapshot. At most one config file is open at a time: the one of the
// function last accessed, in the direction last used.
struct PciSnap {
    PciFunctionList functions;  // newest first: reverse directory order
    const PciFunction *cached_function = nullptr;
    uint32_t cached_direction = PCI_DIR_NONE;
    UniqueFd cached_fd;
    // Look-up by address, built on the first pci_find_function after the
    // scan: (address key, function) sorted by key, equal keys in list order.
    mutable std::vector<std::pair<uint64_t, const PciFunction *>> by_address;

    PciSnap() = default;
    // Functions point back at their snapshot.
    PciSnap(const PciSnap &) = delete;
    PciSnap &operator=(const PciSnap &) = delete;
};

// An empty snapshot, or null with *code PCI_ERR_NO_SNAP and ENOMEM. Dropping
// the pointer releases every function and the cached descriptor.
std::unique_ptr<PciSnap> pci_snap_init(uint32_t *code);

// Fills the snapshot from /sys/bus/pci/devices. On failure the functions
// taken so far stay in it; *code and errno tell why.
bool pci_scan(PciSnap &snap, uint32_t *code);

// The first function from the head with this address, or null: what a walk
// of the list would find, without walking it for every look-up. Reads no
// configuration space.
const PciFunction *pci_find_function(const PciSnap &snap, uint16_t domain, uint8_t bus,
                                     uint8_t device, uint8_t function);

// Removes *it from owner, closing the cached descriptor if it is this
// function's.
void pci_function_free(PciFunctionList &owner, PciFunctionList::iterator it);

// The one routine every accessor goes through. width 1, 2 or 4; direction
// PCI_DIR_READ or PCI_DIR_WRITE; *reason set on failure.
bool pci_config_access(const PciFunction &f, uint8_t *buf, int width, int offset,
                       uint32_t direction, uint32_t *reason);

// Values are little-endian in configuration space. A read stores through
// out only on success; on failure *code (when given) is the reason plus the
// accessor's bit, and errno is left as the failing call set it.
bool pci_read8(const PciFunction &f, uint8_t *out, int offset, uint32_t *code);
bool pci_read16(const PciFunction &f, uint16_t *out, int offset, uint32_t *code);
bool pci_read32(const PciFunction &f, uint32_t *out, int offset, uint32_t *code);
bool pci_write8(const PciFunction &f, uint8_t value, int offset, uint32_t *code);
bool pci_write16(const PciFunction &f, uint16_t value, int offset, uint32_t *code);
bool pci_write32(const PciFunction &f, uint32_t value, int offset, uint32_t *code);
