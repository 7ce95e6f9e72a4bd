// The list of simulated hardware. A new module is a file defining a Module
// and one line here.

#include "preload/module.hpp"
#include "preload/real_calls.hpp"

namespace preload {

const std::vector<Module*>& modules()
{
    static const std::vector<Module*> all{
        &pci_devices_directory(),
        &pci_config_space(),
        &slotag_driver(),
        &proc_devices(),
        &proc_tables(),
        &scsi_disks(),
        &volume_manager(),
        &multipath_directories(),
    };
    return all;
}

int Module::open(const std::string& path, int flags, mode_t mode)
{
    return real::open(path.c_str(), flags, mode);
}

ssize_t Module::read(int fd, void* buf, std::size_t count) { return real::read(fd, buf, count); }

ssize_t Module::write(int fd, const void* buf, std::size_t count)
{
    return real::write(fd, buf, count);
}

ssize_t Module::pread(int fd, void* buf, std::size_t count, off64_t offset)
{
    return real::pread(fd, buf, count, offset);
}

ssize_t Module::pwrite(int fd, const void* buf, std::size_t count, off64_t offset)
{
    return real::pwrite(fd, buf, count, offset);
}

int Module::ioctl(int fd, unsigned long request, void* arg) { return real::ioctl(fd, request, arg); }

} // namespace preload
