#pragma once
// One piece of simulated hardware. The core (hooks.cpp) hands a module the
// descriptors it opened and the directory listings it orders; everything
// else goes straight to the C library. Defaults pass through.

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace preload {

class Module {
public:
    virtual ~Module() = default;

    // Whether the module plays the file at this absolute, lexically clean path.
    virtual bool claims(std::string_view /*path*/) const { return false; }
    // Opens a claimed path: a descriptor, or -1 with errno.
    virtual int open(const std::string& path, int flags, mode_t mode);
    // The program closed a descriptor that this module opened.
    virtual void closed(int /*fd*/) {}

    virtual ssize_t read(int fd, void* buf, std::size_t count);
    virtual ssize_t write(int fd, const void* buf, std::size_t count);
    virtual ssize_t pread(int fd, void* buf, std::size_t count, off64_t offset);
    virtual ssize_t pwrite(int fd, const void* buf, std::size_t count, off64_t offset);
    virtual int ioctl(int fd, unsigned long request, void* arg);

    // Directory listings the module puts in order (readdir of that path).
    virtual bool orders_directory(std::string_view /*path*/) const { return false; }
    // names: what the directory at path holds, "." and ".." excluded;
    // returns them in the order the program is to see them.
    virtual std::vector<std::string> order_directory(std::string_view /*path*/,
                                                     std::vector<std::string> names)
    {
        return names;
    }
};

// A directory listing: the names of first that are among names, in that
// order, then the rest of names by name (listing_order.cpp).
std::vector<std::string> listed_first(const std::vector<std::string>& first,
                                      std::vector<std::string> names);

// Every module, in the order they are asked (registry.cpp).
const std::vector<Module*>& modules();

// The modules; each lives in a file of its own.
Module& pci_devices_directory();
Module& pci_config_space();
Module& slotag_driver();
Module& scsi_disks();
Module& volume_manager();
Module& multipath_directories();
Module& proc_devices();
Module& proc_tables();

} // namespace preload
