#include "mounts.hpp"

#include "files.hpp"
#include "lib/unique_fd.h"

#include <fcntl.h>
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
        throw_errno(std::string("mount ") + (source ? source : type ? type : "(none)") + " on " +
                    target);
}

void chroot_or_throw(const char* path)
{
    if (::chroot(path) != 0)
        throw_errno(std::string("chroot ") + path);
}

// In a chroot, / is a directory inside some mount, and only a mount's own
// root can change propagation. The namespace is already ours, so the
// caller's root is left for a moment to make the namespace's real root
// private, then taken again; the working directory is kept.
void make_private_from_chroot(const std::string& root)
{
    UniqueFd caller_root(::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    UniqueFd caller_cwd(::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!caller_root || !caller_cwd)
        throw_errno("opening / and . before leaving the chroot");
    // Rooted below the working directory, ".." walks up past the old root.
    if (::chdir("/") != 0)
        throw_errno("chdir /");
    chroot_or_throw(root.c_str());
    struct stat here {}, up {};
    for (int depth = 0;; ++depth) {
        if (::stat(".", &here) != 0 || ::stat("..", &up) != 0)
            throw_errno("walking up to the namespace's root");
        if ((here.st_dev == up.st_dev && here.st_ino == up.st_ino) || depth > 4096)
            break;
        if (::chdir("..") != 0)
            throw_errno("walking up to the namespace's root");
    }
    chroot_or_throw(".");
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        throw_errno("making the namespace's root private");
    if (::fchdir(caller_root.get()) != 0)
        throw_errno("returning to the chroot");
    chroot_or_throw(".");
    if (::fchdir(caller_cwd.get()) != 0)
        throw_errno("returning to the working directory");
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
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        if (errno != EINVAL)
            throw_errno("making / private");
        make_private_from_chroot(root);
    }
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
