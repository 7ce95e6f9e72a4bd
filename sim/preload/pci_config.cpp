// PCI configuration space files in sysfs. The files hold the generated
// image; this module adds what a file cannot do: the SHPC register window
// (a byte written to DWORD Select picks the register that DWORD Data
// returns, remembered per function across opens), and it absorbs writes, as
// the hardware ignores writes to read-only registers.

#include "numbers.hpp"
#include "preload/module.hpp"
#include "preload/real_calls.hpp"
#include "preload/state.hpp"
#include "state_files.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <mutex>
#include <optional>

namespace preload {

namespace {

constexpr unsigned dword_select = 2; // from the capability offset
constexpr unsigned dword_data = 4;

struct Window {
    unsigned cap = 0;
    std::map<std::uint8_t, std::uint32_t> regs;
    std::uint8_t select = 0;

    // The byte the window shows at a configuration offset, if it is one of its own.
    std::optional<std::uint8_t> byte_at(off64_t offset) const
    {
        if (offset == cap + dword_select)
            return select;
        if (offset >= cap + dword_data && offset < cap + dword_data + 4) {
            auto it = regs.find(select);
            std::uint32_t value = it == regs.end() ? 0 : it->second;
            return static_cast<std::uint8_t>(value >> 8 * (offset - cap - dword_data));
        }
        return std::nullopt;
    }
};

// "/sys/.../0000:00:1e.0/config" -> "0000:00:1e.0"
std::optional<std::string> function_of(std::string_view path)
{
    constexpr std::string_view suffix = "/config";
    if (!path.starts_with("/sys/") || !path.ends_with(suffix))
        return std::nullopt;
    path.remove_suffix(suffix.size());
    std::string_view name = path.substr(path.rfind('/') + 1);
    if (!parse_pci_address(name))
        return std::nullopt;
    return std::string(name);
}

class PciConfigSpace final : public Module {
public:
    bool claims(std::string_view path) const override { return function_of(path).has_value(); }

    int open(const std::string& path, int flags, mode_t mode) override
    {
        int fd = real::open(path.c_str(), flags, mode);
        if (fd >= 0) {
            std::lock_guard lock(mutex_);
            functions_[fd] = *function_of(path);
        }
        return fd;
    }

    void closed(int fd) override
    {
        std::lock_guard lock(mutex_);
        functions_.erase(fd);
    }

    ssize_t pread(int fd, void* buf, std::size_t count, off64_t offset) override
    {
        ssize_t n = real::pread(fd, buf, count, offset);
        if (n > 0)
            overlay(fd, static_cast<std::uint8_t*>(buf), static_cast<std::size_t>(n), offset);
        return n;
    }

    ssize_t read(int fd, void* buf, std::size_t count) override
    {
        off64_t offset = ::lseek64(fd, 0, SEEK_CUR);
        ssize_t n = real::read(fd, buf, count);
        if (n > 0 && offset >= 0)
            overlay(fd, static_cast<std::uint8_t*>(buf), static_cast<std::size_t>(n), offset);
        return n;
    }

    ssize_t pwrite(int fd, const void* buf, std::size_t count, off64_t offset) override
    {
        return absorb(fd, static_cast<const std::uint8_t*>(buf), count, offset);
    }

    ssize_t write(int fd, const void* buf, std::size_t count) override
    {
        off64_t offset = ::lseek64(fd, 0, SEEK_CUR);
        if (offset < 0)
            return -1;
        ssize_t n = absorb(fd, static_cast<const std::uint8_t*>(buf), count, offset);
        if (n > 0)
            ::lseek64(fd, offset + n, SEEK_SET);
        return n;
    }

private:
    Window* window_of(int fd)
    {
        if (!loaded_) {
            loaded_ = true;
            for (auto& w : state::parse_shpc(read_state(state::shpc_file).value_or("")))
                windows_[w.function] = Window{w.cap, std::move(w.regs), 0};
        }
        auto function = functions_.find(fd);
        if (function == functions_.end())
            return nullptr;
        auto it = windows_.find(function->second);
        return it == windows_.end() ? nullptr : &it->second;
    }

    void overlay(int fd, std::uint8_t* buf, std::size_t n, off64_t offset)
    {
        std::lock_guard lock(mutex_);
        const Window* window = window_of(fd);
        if (!window)
            return;
        for (std::size_t i = 0; i < n; ++i)
            if (auto byte = window->byte_at(offset + static_cast<off64_t>(i)))
                buf[i] = *byte;
    }

    // A write as sysfs takes it: refused on a descriptor not open for
    // writing, cut at the end of the configuration space; the file itself
    // is left alone.
    ssize_t absorb(int fd, const std::uint8_t* buf, std::size_t count, off64_t offset)
    {
        int flags = ::fcntl(fd, F_GETFL);
        if (flags < 0)
            return -1;
        if ((flags & O_ACCMODE) == O_RDONLY) {
            errno = EBADF;
            return -1;
        }
        struct stat st;
        if (::fstat(fd, &st) != 0)
            return -1;
        if (offset < 0) {
            errno = EINVAL;
            return -1;
        }
        if (offset >= st.st_size)
            return 0;
        std::size_t n = std::min<std::size_t>(count, static_cast<std::size_t>(st.st_size - offset));
        std::lock_guard lock(mutex_);
        if (Window* window = window_of(fd)) {
            const off64_t select_at = window->cap + dword_select;
            if (offset <= select_at && select_at < offset + static_cast<off64_t>(n))
                window->select = buf[select_at - offset];
        }
        return static_cast<ssize_t>(n);
    }

    std::mutex mutex_;
    bool loaded_ = false;
    std::map<std::string, Window> windows_; // by function; outlives descriptors
    std::map<int, std::string> functions_;  // open descriptor -> function
};

} // namespace

Module& pci_config_space()
{
    static PciConfigSpace module;
    return module;
}

} // namespace preload
