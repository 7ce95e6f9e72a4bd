// /proc/self/mountinfo and /proc/swaps from ROOT/proc-mountinfo and
// ROOT/proc-swaps. A bind mount made before the program starts cannot
// cover /proc/self, which names the process that reads it.

#include "preload/module.hpp"
#include "preload/state.hpp"

#include <cerrno>

namespace preload {

namespace {

class ProcTables final : public Module {
public:
    bool claims(std::string_view path) const override
    {
        return path == "/proc/self/mountinfo" || path == "/proc/swaps";
    }

    int open(const std::string& path, int flags, mode_t mode) override
    {
        const std::string& state = state_dir();
        if (state.empty()) {
            errno = ENOENT;
            return -1;
        }
        const std::string root = state.substr(0, state.rfind('/'));
        return Module::open(root + (path == "/proc/swaps" ? "/proc-swaps" : "/proc-mountinfo"),
                            flags, mode);
    }
};

} // namespace

Module& proc_tables()
{
    static ProcTables module;
    return module;
}

} // namespace preload
