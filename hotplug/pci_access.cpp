// Aligned configuration reads and writes through the function's sysfs
// config file, with one cached descriptor per snapshot: consecutive accesses
// to one function in one direction share an open.
#include "hotplug/pci_access.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace {

void set(uint32_t *code, uint32_t value)
{
    if (code)
        *code = value;
}

bool read_le(const PciFunction &f, int width, int offset, uint32_t accessor, uint32_t *value,
             uint32_t *code)
{
    uint8_t bytes[4] = {};
    uint32_t reason = 0;
    if (!pci_config_access(f, bytes, width, offset, PCI_DIR_READ, &reason)) {
        set(code, reason + accessor);
        return false;
    }
    uint32_t v = 0;
    for (int i = width - 1; i >= 0; i--)
        v = (v << 8) | bytes[i];
    *value = v;
    return true;
}

bool write_le(const PciFunction &f, int width, int offset, uint32_t accessor, uint32_t value,
              uint32_t *code)
{
    uint8_t bytes[4];
    for (int i = 0; i < width; i++)
        bytes[i] = static_cast<uint8_t>(value >> (8 * i));
    uint32_t reason = 0;
    if (!pci_config_access(f, bytes, width, offset, PCI_DIR_WRITE, &reason)) {
        set(code, reason + accessor);
        return false;
    }
    return true;
}

} // namespace

bool pci_config_access(const PciFunction &f, uint8_t *buf, int width, int offset,
                       uint32_t direction, uint32_t *reason)
{
    if ((offset & (width - 1)) != 0) {
        set(reason, PCI_ERR_ALIGN);
        errno = EINVAL;
        return false;
    }
    int open_flag;
    if (direction == PCI_DIR_READ) {
        open_flag = O_RDONLY;
    } else if (direction == PCI_DIR_WRITE) {
        open_flag = O_WRONLY;
    } else {
        set(reason, PCI_ERR_DIRECTION);
        errno = EINVAL;
        return false;
    }

    PciSnap &snap = *f.snap;
    if (snap.cached_function != &f || snap.cached_direction != direction) {
        int fd = open(f.config_path.c_str(), open_flag);
        if (fd == -1) {
            set(reason, PCI_ERR_OPEN);
            return false;
        }
        snap.cached_fd.reset(fd);
        snap.cached_function = &f;
        snap.cached_direction = direction;
    }

    ssize_t n = direction == PCI_DIR_READ ? pread(snap.cached_fd.get(), buf, width, offset)
                                          : pwrite(snap.cached_fd.get(), buf, width, offset);
    if (n == -1) {
        set(reason, direction == PCI_DIR_READ ? PCI_ERR_PREAD : PCI_ERR_PWRITE);
        return false;
    }
    if (n != width) {
        set(reason, PCI_ERR_SHORT);
        errno = ENXIO;
        return false;
    }
    return true;
}

bool pci_read8(const PciFunction &f, uint8_t *out, int offset, uint32_t *code)
{
    uint32_t v;
    if (!read_le(f, 1, offset, PCI_ACC_READ8, &v, code))
        return false;
    *out = static_cast<uint8_t>(v);
    return true;
}

bool pci_read16(const PciFunction &f, uint16_t *out, int offset, uint32_t *code)
{
    uint32_t v;
    if (!read_le(f, 2, offset, PCI_ACC_READ16, &v, code))
        return false;
    *out = static_cast<uint16_t>(v);
    return true;
}

bool pci_read32(const PciFunction &f, uint32_t *out, int offset, uint32_t *code)
{
    return read_le(f, 4, offset, PCI_ACC_READ32, out, code);
}

bool pci_write8(const PciFunction &f, uint8_t value, int offset, uint32_t *code)
{
    return write_le(f, 1, offset, PCI_ACC_WRITE8, value, code);
}

bool pci_write16(const PciFunction &f, uint16_t value, int offset, uint32_t *code)
{
    return write_le(f, 2, offset, PCI_ACC_WRITE16, value, code);
}

bool pci_write32(const PciFunction &f, uint32_t value, int offset, uint32_t *code)
{
    return write_le(f, 4, offset, PCI_ACC_WRITE32, value, code);
}
