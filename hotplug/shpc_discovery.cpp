// Discovery of the hot-plug controllers in a PCI snapshot.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "cli/core/report.h"
#include "hotplug/pci_regs.h"
#include "hotplug/pci_report.h"
#include "hotplug/shpc.h"

std::list<ShpcInfo> shpc_list;

namespace {

constexpr unsigned SITE_SELECT = 2474;
constexpr unsigned SITE_DATA = 2485;
constexpr unsigned SITE_NO_ENTRY = 2512;
constexpr unsigned SITE_BUS_ID = 2530;
constexpr unsigned SITE_STATUS = 2562;
constexpr unsigned SITE_CAP_POINTER = 2584;
constexpr unsigned SITE_CAP_ID = 2598;
constexpr unsigned SITE_CLASS = 2651;
constexpr unsigned SITE_REVISION = 2684;
constexpr unsigned SITE_SECONDARY_BUS = 2697;
constexpr int SITE_SHPC_REGISTER[4] = {2711, 2721, 2731, 2741};
constexpr unsigned SITE_EXP_FLAGS = 2754;
constexpr unsigned SITE_SLOT_CAP = 2776;

// The capability list has no bound of its own, and a broken device (or a
// pointer that leads back into the list) could make it circular. A valid
// list holds at most 48 entries (192 bytes above the header, 4 bytes each),
// the bound the Linux kernel uses too; a longer walk is taken as a loop.
constexpr int CAPABILITY_WALK_LIMIT = 48;
// The loop is reported like an unreadable list, with a site of its own: the
// administrator is told which function has a broken list instead of only
// seeing the capability missing. Then, like a failed read, the capability
// counts as absent.
constexpr unsigned SITE_CAP_LOOP = 2607;

void fail_access(unsigned site, const PciFunction &f, uint32_t code)
{
    report_fatal(site);
    log_pci_device(f, code);
}

void fail_exp_access(unsigned site, const PciFunction &f, uint8_t cap, uint32_t code)
{
    report_fatal(site);
    log_err("%04x:%02x:%02x.%d(%u:%x)\n", f.domain, f.bus, f.device, f.function,
            static_cast<unsigned>(cap), code);
}

// PCI Express port with a power-controlled slot: 1; not one: 0; -1 when a
// register could not be read (reported).
int is_power_controlled_port(const PciFunction &f, uint8_t cap)
{
    uint16_t flags = 0;
    uint32_t code = 0;
    if (!pci_read16(f, &flags, cap + PCI_EXP_FLAGS, &code)) {
        fail_exp_access(SITE_EXP_FLAGS, f, cap, code);
        return -1;
    }
    unsigned type = (flags & PCI_EXP_FLAGS_TYPE) >> PCI_EXP_FLAGS_TYPE_SHIFT;
    if (type != PCI_EXP_TYPE_DOWNSTREAM || !(flags & PCI_EXP_FLAGS_SLOT))
        return 0;
    uint16_t slot_cap = 0;
    if (!pci_read16(f, &slot_cap, cap + PCI_EXP_SLTCAP, &code)) {
        fail_exp_access(SITE_SLOT_CAP, f, cap, code);
        return -1;
    }
    return (slot_cap & PCI_EXP_SLTCAP_PCP) ? 1 : 0;
}

// One function of the snapshot: 1 a controller was added, 0 not one, -1
// failure (reported).
int examine(const PciFunction &f)
{
    uint16_t class_code = 0;
    uint32_t code = 0;
    if (!pci_read16(f, &class_code, PCI_CLASS_DEVICE, &code)) {
        fail_access(SITE_CLASS, f, code);
        return -1;
    }
    if (class_code != PCI_CLASS_BRIDGE_PCI)
        return 0;

    uint32_t magic = SHPC_MAGIC;
    uint8_t cap = find_capability(f, PCI_CAP_ID_SHPC);
    if (cap == 0) {
        magic = PCIE_PORT_MAGIC;
        cap = find_capability(f, PCI_CAP_ID_EXP);
        if (cap == 0)
            return 0;
    }

    uint8_t revision = 0, secondary_bus = 0;
    if (!pci_read8(f, &revision, PCI_REVISION_ID, &code)) {
        fail_access(SITE_REVISION, f, code);
        return -1;
    }
    if (!pci_read8(f, &secondary_bus, PCI_SECONDARY_BUS, &code)) {
        fail_access(SITE_SECONDARY_BUS, f, code);
        return -1;
    }

    ShpcRegisters regs{};  // all 0 for a PCI Express port
    if (magic == SHPC_MAGIC) {
        uint32_t *values[4] = {&regs.slots_available_1, &regs.slots_available_2,
                               &regs.slot_config, &regs.sec_bus_config};
        const uint8_t index[4] = {SHPC_SLOTS_AVAILABLE_1, SHPC_SLOTS_AVAILABLE_2,
                                  SHPC_SLOT_CONFIG, SHPC_SEC_BUS_CONFIG};
        for (int i = 0; i < 4; i++) {
            if (shpc_read_register(f, cap, index[i], values[i]) == -1) {
                log_callee("search_shpc", SITE_SHPC_REGISTER[i]);
                return -1;
            }
        }
    } else {
        int port = is_power_controlled_port(f, cap);
        if (port != 1)
            return port;
    }

    if (!new_shpc_info(f, magic, revision, class_code, 0, 0, secondary_bus, cap, regs))
        return -1;
    return 1;
}

} // namespace

uint8_t find_capability(const PciFunction &f, uint8_t id)
{
    uint16_t status = 0;
    uint32_t code = 0;
    if (!pci_read16(f, &status, PCI_STATUS, &code)) {
        fail_access(SITE_STATUS, f, code);
        return 0;
    }
    if (!(status & PCI_STATUS_CAP_LIST))
        return 0;
    uint8_t pointer = 0;
    if (!pci_read8(f, &pointer, PCI_CAPABILITY_LIST, &code)) {
        fail_access(SITE_CAP_POINTER, f, code);
        return 0;
    }
    for (int hops = 0; pointer != 0 && hops < CAPABILITY_WALK_LIMIT; hops++) {
        uint8_t cap_id = 0;
        if (!pci_read8(f, &cap_id, pointer + PCI_CAP_LIST_ID, &code)) {
            fail_access(SITE_CAP_ID, f, code);
            return 0;
        }
        if (cap_id == id)
            return pointer;
        // The next pointer lives in the byte after the ID, within the
        // 256-byte space (8-bit arithmetic); its value is used as read.
        uint8_t next_at = static_cast<uint8_t>(pointer + PCI_CAP_LIST_NEXT);
        if (!pci_read8(f, &pointer, next_at, &code)) {
            fail_access(SITE_CAP_POINTER, f, code);
            return 0;
        }
    }
    if (pointer != 0) {
        // The function, where the walk gave up (decimal, as the Express
        // lines give a capability offset) and the capability it looked for.
        fail_exp_access(SITE_CAP_LOOP, f, pointer, id);
    }
    return 0;
}

int shpc_read_register(const PciFunction &f, uint8_t cap, uint8_t index, uint32_t *value)
{
    uint32_t code = 0;
    if (!pci_write8(f, index, cap + SHPC_DWORD_SELECT, &code)) {
        fail_access(SITE_SELECT, f, code);
        return -1;
    }
    if (!pci_read32(f, value, cap + SHPC_DWORD_DATA, &code)) {
        fail_access(SITE_DATA, f, code);
        return -1;
    }
    return 0;
}

bool new_shpc_info(const PciFunction &f, uint32_t magic, uint8_t revision, uint16_t class_code,
                   uint32_t reserved_low, uint32_t reserved_high, uint8_t secondary_bus,
                   uint8_t cap, const ShpcRegisters &regs)
{
    ShpcInfo s{};
    s.magic = magic;
    s.domain = f.domain;
    s.bus = f.bus;
    s.device = f.device;
    s.function = f.function;
    s.revision = revision;
    s.header_type = f.header_type;
    int n = snprintf(s.bus_id, sizeof s.bus_id, "%04x:%02x:%02x.%x", f.domain, f.bus, f.device,
                     f.function);
    if (n < 1 || n >= static_cast<int>(sizeof s.bus_id)) {
        report_fatal(SITE_BUS_ID);
        return false;
    }
    s.class_code = class_code;
    s.secondary_bus = secondary_bus;
    s.cap_offset = cap;
    s.slots_available_1 = regs.slots_available_1;
    s.slots_available_2 = regs.slots_available_2;
    s.slot_config = regs.slot_config;
    s.sec_bus_config = regs.sec_bus_config;
    s.reserved64[0] = reserved_low;
    s.reserved64[1] = reserved_high;
    try {
        shpc_list.push_front(s);
    } catch (const std::bad_alloc &) {
        // An entry is one ShpcInfo, of which discovery fills the first 68
        // bytes.
        report_no_resources(sizeof(ShpcInfo), SITE_NO_ENTRY);
        return false;
    }
    return true;
}

int search_shpc(PciSnap &snap)
{
    shpc_list.clear();
    int count = 0;
    for (const PciFunction &f : snap.functions) {
        int found = examine(f);
        if (found == -1)
            return -1;
        count += found;
    }
    return count;
}
