#include "preload/guest_memory.hpp"

#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace preload {

namespace {

// process_vm_readv/writev on the process itself check the addresses; where
// the system call is missing (an emulator), the copy is made directly.
bool copy(std::uintptr_t remote, void* local, std::size_t size, bool to_guest)
{
    if (size == 0)
        return true;
    iovec local_iov{local, size};
    iovec remote_iov{reinterpret_cast<void*>(remote), size};
    ssize_t n = to_guest ? ::process_vm_writev(::getpid(), &local_iov, 1, &remote_iov, 1, 0)
                         : ::process_vm_readv(::getpid(), &local_iov, 1, &remote_iov, 1, 0);
    if (n == static_cast<ssize_t>(size))
        return true;
    if (n < 0 && (errno == ENOSYS || errno == EPERM)) {
        if (to_guest)
            std::memcpy(reinterpret_cast<void*>(remote), local, size);
        else
            std::memcpy(local, reinterpret_cast<const void*>(remote), size);
        return true;
    }
    return false;
}

} // namespace

bool read_guest(std::uintptr_t address, void* out, std::size_t size)
{
    return copy(address, out, size, false);
}

bool write_guest(std::uintptr_t address, const void* in, std::size_t size)
{
    return copy(address, const_cast<void*>(in), size, true);
}

} // namespace preload
