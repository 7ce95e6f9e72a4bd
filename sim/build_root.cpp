#include "build_root.hpp"

#include "files.hpp"
#include "state_files.hpp"
#include "storage_tree.hpp"
#include "sysfs_tree.hpp"
#include "topology.hpp"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <stdexcept>

namespace {

// The driver's number in the default /proc/devices below.
constexpr unsigned slotag_major = 240;

// What a small server's /proc/devices says; the volume manager is not
// registered unless the topology writes its own.
constexpr const char* default_proc_devices =
    "Character devices:\n"
    "  1 mem\n"
    "  4 /dev/vc/0\n"
    "  4 tty\n"
    "  4 ttyS\n"
    "  5 /dev/tty\n"
    "  5 /dev/console\n"
    "  5 /dev/ptmx\n"
    "  7 vcs\n"
    " 10 misc\n"
    " 13 input\n"
    " 21 sg\n"
    "128 ptm\n"
    "136 pts\n"
    "180 usb\n"
    "189 usb_device\n"
    "226 drm\n"
    "240 slotag\n"
    "254 rtc\n"
    "\n"
    "Block devices:\n"
    "  7 loop\n"
    "  8 sd\n"
    "  9 md\n"
    " 11 sr\n"
    " 65 sd\n"
    " 66 sd\n"
    "253 device-mapper\n"
    "254 mdp\n"
    "259 blkext\n";

void prepare_empty_root(const std::string& root)
{
    if (exists(root)) {
        if (!is_directory(root) || !list_dir(root).empty())
            throw std::runtime_error(root + ": exists and is not an empty directory");
    } else {
        make_dirs(root);
    }
}

void write_dev(const std::string& dev, bool driver_present)
{
    make_dirs(dev);
    // Mount points: `run` binds the host's nodes onto them.
    for (const char* node : {"null", "zero", "full", "random", "urandom"})
        write_file(dev + "/" + node, "", 0666);
    make_symlink("/proc/self/fd", dev + "/fd");
    make_symlink("/proc/self/fd/0", dev + "/stdin");
    make_symlink("/proc/self/fd/1", dev + "/stdout");
    make_symlink("/proc/self/fd/2", dev + "/stderr");
    // A character node, as the driver's udev rule makes it, so that a look
    // at its kind sees the real thing; the preloaded library opens and
    // answers it (no driver sits behind the number).
    if (driver_present && ::mknod((dev + "/slotag").c_str(), S_IFCHR | 0600,
                                  ::makedev(slotag_major, 0)) != 0)
        throw_errno("mknod " + dev + "/slotag");
}

void apply_file_directives(const std::string& root, const Topology& topology)
{
    for (const auto& directive : topology.files) {
        const std::string path = root + "/" + directive.path;
        auto slash = path.rfind('/');
        switch (directive.kind) {
        case FileDirective::Kind::file:
            make_dirs(path.substr(0, slash));
            write_file(path, directive.content, directive.mode);
            break;
        case FileDirective::Kind::dir:
            make_dirs(path, directive.mode);
            break;
        case FileDirective::Kind::symlink:
            make_dirs(path.substr(0, slash));
            if (exists(path) && ::unlink(path.c_str()) != 0)
                throw_errno(path);
            make_symlink(directive.content, path);
            break;
        case FileDirective::Kind::remove:
            if (::unlink(path.c_str()) != 0 && ::rmdir(path.c_str()) != 0)
                throw_errno("remove " + path);
            break;
        }
    }
}

std::string listing_text(const Topology& topology)
{
    std::string text = "# /sys/bus/pci/devices in listing order (after . and ..)\n";
    for (const auto& name : topology.listing)
        text += name + "\n";
    return text;
}

} // namespace

void build_root(const std::string& root, const std::string& topology_file)
{
    auto text = read_file(topology_file);
    if (!text)
        throw std::runtime_error(topology_file + ": no such file");
    const Topology topology = parse_topology(*text, topology_file);
    ::umask(022);
    prepare_empty_root(root);

    make_dirs(root + "/etc");
    write_file(root + "/etc/hba_addr.conf", "");
    write_file(root + "/etc/alterpm.conf", "");
    make_dirs(root + "/var/log");
    make_dirs(root + "/var/lock");
    write_file(root + "/var/lock/.slotag.lock", "");

    const std::string state = root + "/state";
    make_dirs(state + "/" + state::requests_dir);
    write_file(state + "/" + state::pci_order_file, listing_text(topology));
    write_file(state + "/" + state::shpc_file, state::format_shpc(write_sysfs(root + "/sys", topology)));
    write_file(state + "/" + state::driver_file, state::format_driver(topology.driver));
    if (topology.fsync_signal != 0)
        write_file(state + "/" + state::fsync_signal_file, std::to_string(topology.fsync_signal) + "\n");

    write_file(root + "/proc-devices", default_proc_devices, 0444);
    write_dev(root + "/dev", !topology.driver_absent);
    make_dirs(root + "/sbin");
    write_storage(root, topology);
    apply_file_directives(root, topology);
}
