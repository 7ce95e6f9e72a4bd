#include "mounts.hpp"

#include "files.hpp"

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

void mount_or_throw(const char* source, const std::string& target, const char* type,
                    unsigned long flags, const char* data = nullptr)
{
    if (::mount(source, target.c_str(), type, flags, data) != 0)
        throw_errno(std::string("mount ") + (source ? source : type) + " on " + target);
}

void bind(const std::string& source, const std::string& target)
{
    mount_or_throw(source.c_str(), target, nullptr, MS_BIND | MS_REC);
}

// /etc/opt and /var/opt get an empty tmpfs holding only KVTPslotag, so that
// nothing of the host's own product directories shows through.
void mount_product_dir(const std::string& parent, const std::string& source)
{
    if (::mkdir(parent.c_str(), 0755) != 0 && errno != EEXIST)
        throw_errno(parent);
    mount_or_throw("tmpfs", parent, "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755");
    const std::string target = parent + "/KVTPslotag";
    if (::mkdir(target.c_str(), 0755) != 0)
        throw_errno(target);
    bind(source, target);
}

void mount_dev(const std::string& dev)
{
    // The host's character devices are bound onto the mount points that
    // build left; a test that removed one keeps it removed, except null,
    // which every program expects.
    if (!exists(dev + "/null"))
        write_file(dev + "/null", "", 0666);
    for (const char* node : {"null", "zero", "full", "random", "urandom"}) {
        const std::string target = dev + "/" + node;
        if (exists(target))
            bind(std::string("/dev/") + node, target);
    }
    bind(dev, "/dev");
}

} // namespace

void enter_simulated_server(const std::string& root)
{
    if (::unshare(CLONE_NEWNS | CLONE_NEWUTS) != 0)
        throw_errno("unshare");
    // Nothing mounted from here on may propagate back to the host.
    mount_or_throw(nullptr, "/", nullptr, MS_REC | MS_PRIVATE);
    if (::sethostname(simulated_hostname, std::strlen(simulated_hostname)) != 0)
        throw_errno("sethostname");
    mount_product_dir("/etc/opt", root + "/etc");
    mount_product_dir("/var/opt", root + "/var");
    bind(root + "/sys", "/sys");
    // Without ROOT/proc-devices the library makes opens of /proc/devices fail.
    if (exists(root + "/proc-devices"))
        bind(root + "/proc-devices", "/proc/devices");
    mount_dev(root + "/dev");
    bind(root + "/sbin", "/usr/sbin");
}
