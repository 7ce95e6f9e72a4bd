#include "preload/storage.hpp"

#include "preload/guest_memory.hpp"
#include "preload/real_calls.hpp"
#include "preload/state.hpp"

#include <fcntl.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <mutex>

namespace preload {

const state::StorageState& storage()
{
    static const state::StorageState parsed =
        state::parse_storage(read_state(state::storage_file).value_or(""));
    return parsed;
}

const state::StorageDisk* disk_at(std::string_view path)
{
    if (!path.starts_with("/dev/"))
        return nullptr;
    path.remove_prefix(5);
    for (const auto& disk : storage().disks) {
        if (!path.starts_with(disk.name))
            continue;
        std::string_view rest = path.substr(disk.name.size());
        if (rest.empty())
            return &disk;
        // NAME1 .. NAMEk
        if (rest.front() != '0' && rest.size() <= 2 &&
            std::all_of(rest.begin(), rest.end(), [](char c) { return c >= '0' && c <= '9'; }) &&
            std::stoul(std::string(rest)) <= disk.partitions)
            return &disk;
    }
    return nullptr;
}

const state::StorageDisk* disk_numbered(std::uint64_t dev)
{
    for (const auto& disk : storage().disks) {
        if (::major(dev) != disk.major)
            continue;
        const unsigned minor = ::minor(dev);
        if (minor >= disk.minor && minor <= disk.minor + disk.partitions)
            return &disk;
    }
    return nullptr;
}

int open_gate(const std::string& key, int open_error, unsigned busy)
{
    if (open_error != 0)
        return open_error;
    static std::mutex mutex;
    static std::map<std::string, unsigned> attempts;
    std::lock_guard lock(mutex);
    return attempts[key]++ < busy ? EAGAIN : 0;
}

int stand_in(int flags)
{
    return real::open("/dev/null", flags & (O_ACCMODE | O_NONBLOCK | O_CLOEXEC), 0);
}

int answer_pci_name(const state::StorageDisk& disk, std::uintptr_t address)
{
    if (disk.ioctl_error != 0)
        return disk.ioctl_error;
    if (disk.pci_name.empty())
        return ENOTTY; // not on a SCSI host
    const std::size_t size = std::min(disk.pci_name.size(), scsi_pci_name_size);
    return write_guest(address, disk.pci_name.data(), size) ? 0 : EFAULT;
}

} // namespace preload
