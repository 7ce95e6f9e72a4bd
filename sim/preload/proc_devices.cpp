// /proc/devices when the simulated root has none: a bind mount cannot make
// a file disappear, so the open fails here as it would on a system without
// the file.

#include "preload/module.hpp"
#include "preload/state.hpp"

#include <sys/stat.h>

#include <cerrno>

namespace preload {

namespace {

class ProcDevices final : public Module {
public:
    bool claims(std::string_view path) const override { return path == "/proc/devices"; }

    int open(const std::string& path, int flags, mode_t mode) override
    {
        const std::string& state = state_dir();
        struct stat st;
        if (!state.empty() && ::lstat((state.substr(0, state.rfind('/')) + "/proc-devices").c_str(), &st) != 0) {
            errno = ENOENT;
            return -1;
        }
        return Module::open(path, flags, mode);
    }
};

} // namespace

Module& proc_devices()
{
    static ProcDevices module;
    return module;
}

} // namespace preload
