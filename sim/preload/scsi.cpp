// SCSI disks: /dev/sdX and its partitions open (or refuse, or answer
// EAGAIN for a while) and answer SCSI_IOCTL_GET_PCI with the PCI name of
// their host's adapter. A partition answers as its disk, as Linux does.

#include "preload/module.hpp"
#include "preload/storage.hpp"

#include <cerrno>
#include <cstdint>
#include <map>
#include <mutex>

namespace preload {

namespace {

class ScsiDisks final : public Module {
public:
    bool claims(std::string_view path) const override { return disk_at(path) != nullptr; }

    int open(const std::string& path, int flags, mode_t /*mode*/) override
    {
        const state::StorageDisk* disk = disk_at(path);
        if (int err = open_gate(path, disk->open_error, disk->open_busy)) {
            errno = err;
            return -1;
        }
        int fd = stand_in(flags);
        if (fd >= 0) {
            std::lock_guard lock(mutex_);
            open_[fd] = disk;
        }
        return fd;
    }

    void closed(int fd) override
    {
        std::lock_guard lock(mutex_);
        open_.erase(fd);
    }

    int ioctl(int fd, unsigned long request, void* arg) override
    {
        const state::StorageDisk* disk = nullptr;
        {
            std::lock_guard lock(mutex_);
            disk = open_.at(fd);
        }
        // The kernel takes the request number as 32 bits.
        int err = static_cast<std::uint32_t>(request) == scsi_get_pci
                      ? answer_pci_name(*disk, reinterpret_cast<std::uintptr_t>(arg))
                      : ENOTTY;
        if (err != 0) {
            errno = err;
            return -1;
        }
        return 0;
    }

private:
    std::mutex mutex_;
    std::map<int, const state::StorageDisk*> open_;
};

} // namespace

Module& scsi_disks()
{
    static ScsiDisks module;
    return module;
}

} // namespace preload
