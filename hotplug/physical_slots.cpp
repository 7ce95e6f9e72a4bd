// Physical slot numbers. The registration reads none of these: they are read
// here only, after the registration's own reads.
#include "hotplug/physical_slots.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

#include "hotplug/pci_regs.h"
#include "lib/unique_dir.h"

namespace {

constexpr const char *SYSFS_SLOTS = "/sys/bus/pci/slots";
// "DDDD:BB:DD" and a line end; anything longer is no address.
constexpr size_t ADDRESS_MAX = 32;

// The first line of dir/name/address, or false.
bool read_address(int dir_fd, const char *name, std::string &text)
{
    std::string path = std::string(name) + "/address";
    int fd = openat(dir_fd, path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd == -1)
        return false;
    char buf[ADDRESS_MAX + 1];
    ssize_t n;
    do
        n = read(fd, buf, ADDRESS_MAX);
    while (n == -1 && errno == EINTR);
    close(fd);
    if (n <= 0)
        return false;
    buf[n] = '\0';
    text.assign(buf, strnlen(buf, static_cast<size_t>(n)));
    size_t end = text.find('\n');
    if (end != std::string::npos)
        text.resize(end);
    return true;
}

bool parse_address(const std::string &text, SysfsSlot &slot)
{
    unsigned domain, bus, device;
    int used = 0;
    if (sscanf(text.c_str(), "%4x:%2x:%2x%n", &domain, &bus, &device, &used) == 3 &&
        static_cast<size_t>(used) == text.size()) {
        slot.device = static_cast<int>(device);
    } else if (sscanf(text.c_str(), "%4x:%2x%n", &domain, &bus, &used) == 2 &&
               static_cast<size_t>(used) == text.size()) {
        slot.device = -1;
    } else {
        return false;
    }
    slot.domain = static_cast<uint16_t>(domain);
    slot.bus = static_cast<uint8_t>(bus);
    return true;
}

} // namespace

std::vector<SysfsSlot> read_sysfs_slots()
{
    std::vector<SysfsSlot> slots;
    UniqueDir dir(opendir(SYSFS_SLOTS));
    if (!dir)
        return slots;  // no hot-plug driver has registered a slot
    while (const dirent *e = readdir(dir.get())) {
        if (e->d_name[0] == '.')
            continue;
        SysfsSlot slot;
        std::string text;
        if (!read_address(dirfd(dir.get()), e->d_name, text) || !parse_address(text, slot))
            continue;
        slot.name = e->d_name;
        slots.push_back(slot);
    }
    std::sort(slots.begin(), slots.end(),
              [](const SysfsSlot &a, const SysfsSlot &b) { return a.name < b.name; });
    return slots;
}

std::vector<SlotView> shpc_slots(const ShpcInfo &shpc, unsigned first_device,
                                 unsigned slot_count)
{
    long first_number = (shpc.slot_config >> SHPC_SLOT_CONFIG_PSN_SHIFT) & SHPC_SLOT_CONFIG_PSN_MASK;
    bool up = (shpc.slot_config & SHPC_SLOT_CONFIG_PSN_UP) != 0;
    std::vector<SlotView> slots;
    for (unsigned i = 0; i < slot_count; i++) {
        SlotView s;
        s.device = static_cast<int>(first_device + i);
        long number = up ? first_number + i : first_number - i;
        s.physical = number >= 0 ? number : -1;
        slots.push_back(s);
    }
    return slots;
}

std::vector<SlotView> port_slot(const ShpcInfo &port, const PciFunction *f)
{
    SlotView s;
    uint32_t slot_cap = 0, code = 0;
    if (f && pci_read32(*f, &slot_cap, port.cap_offset + PCI_EXP_SLTCAP, &code))
        s.physical = slot_cap >> PCI_EXP_SLTCAP_PSN_SHIFT;
    return {s};
}

void match_sysfs_slots(const ShpcInfo &controller, std::vector<SlotView> &slots,
                       const std::vector<SysfsSlot> &sysfs)
{
    for (const SysfsSlot &k : sysfs) {
        if (k.domain != controller.domain || k.bus != controller.secondary_bus)
            continue;
        for (SlotView &s : slots)
            if (s.device == -1 || k.device == -1 || k.device == s.device)
                s.sysfs_names.push_back(k.name);
    }
}
