// The volume manager's nodes: its volumes (which open, and know no SCSI
// request) and its diagnostic device /dev/vdsdev/_diag, which relays
// SCSI_IOCTL_GET_PCI to the disk with a given device number and writes the
// answer to a 32-bit address in the caller's memory. Every relay request
// is recorded for `slotag-sim dump`.

#include "numbers.hpp"
#include "preload/guest_memory.hpp"
#include "preload/module.hpp"
#include "preload/state.hpp"
#include "preload/storage.hpp"
#include "state_files.hpp"

#include <sys/sysmacros.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <set>

namespace preload {

namespace {

constexpr const char* diag_path = "/dev/vdsdev/_diag";
constexpr std::uint32_t relay_request = 0x737800;
constexpr std::size_t request_size = 16; // dev_low, dev_high, command, result

std::uint32_t le32(const std::uint8_t* bytes)
{
    return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
           static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

std::string hex(std::uint32_t value)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", static_cast<unsigned>(value));
    return text;
}

void record(const std::string& line)
{
    const std::string name = std::string(state::requests_dir) + "/" + state::vds_diag_log;
    write_state(name, read_state(name).value_or("") + line + "\n");
}

// What the driver does with one request; errno to fail with, or 0.
int relay(std::uintptr_t arg)
{
    std::uint8_t bytes[request_size];
    if (!read_guest(arg, bytes, sizeof bytes)) {
        record("_diag 0x737800: request unreadable, returned -1 errno=EFAULT");
        return EFAULT;
    }
    const std::uint32_t dev_low = le32(bytes), dev_high = le32(bytes + 4);
    const std::uint32_t command = le32(bytes + 8), result = le32(bytes + 12);
    const std::uint64_t dev = std::uint64_t{dev_high} << 32 | dev_low;
    std::string line = "_diag 0x737800 dev_low=" + hex(dev_low) + " dev_high=" + hex(dev_high) +
                       " (" + std::to_string(::major(dev)) + ":" + std::to_string(::minor(dev)) +
                       ") command=" + hex(command) + " result=" + (result ? "set" : "0") + ": ";
    const state::StorageDisk* disk = disk_numbered(dev);
    int err = 0;
    if (command != scsi_get_pci)
        err = EINVAL;
    else if (!disk)
        err = ENXIO;
    else if (disk->relay_error != 0)
        err = disk->relay_error;
    else
        // The result field is a 32-bit address, zero-extended.
        err = answer_pci_name(*disk, std::uintptr_t{result});
    if (disk)
        line += disk->name + ", ";
    if (err != 0) {
        record(line + "returned -1 errno=" + errno_name(err));
        return err;
    }
    const std::size_t size = std::min(disk->pci_name.size(), scsi_pci_name_size);
    record(line + "returned 0, wrote \"" + disk->pci_name.substr(0, size) + "\"");
    return 0;
}

class VolumeManager final : public Module {
public:
    bool claims(std::string_view path) const override
    {
        const auto& s = storage();
        if (path == diag_path)
            return s.diag.has_value();
        return std::find(s.volume_nodes.begin(), s.volume_nodes.end(), path) != s.volume_nodes.end();
    }

    int open(const std::string& path, int flags, mode_t /*mode*/) override
    {
        const bool diag = path == diag_path;
        if (diag) {
            const state::StorageDiag& d = *storage().diag;
            if (int err = open_gate(path, d.open_error, d.open_busy)) {
                errno = err;
                return -1;
            }
        }
        int fd = stand_in(flags);
        if (fd >= 0 && diag) {
            std::lock_guard lock(mutex_);
            diag_fds_.insert(fd);
        }
        return fd;
    }

    void closed(int fd) override
    {
        std::lock_guard lock(mutex_);
        diag_fds_.erase(fd);
    }

    int ioctl(int fd, unsigned long request, void* arg) override
    {
        bool diag = false;
        {
            std::lock_guard lock(mutex_);
            diag = diag_fds_.count(fd) > 0;
        }
        // The kernel takes the request number as 32 bits.
        int err = diag && static_cast<std::uint32_t>(request) == relay_request
                      ? relay(reinterpret_cast<std::uintptr_t>(arg))
                      : ENOTTY;
        if (err != 0) {
            errno = err;
            return -1;
        }
        return 0;
    }

private:
    std::mutex mutex_;
    std::set<int> diag_fds_;
};

} // namespace

Module& volume_manager()
{
    static VolumeManager module;
    return module;
}

} // namespace preload
