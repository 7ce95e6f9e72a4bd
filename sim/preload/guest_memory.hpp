#pragma once
// The program's memory as a driver sees it: a copy that fails with EFAULT on
// an address that is not mapped, instead of crashing the program.

#include <cstddef>
#include <cstdint>

namespace preload {

bool read_guest(std::uintptr_t address, void* out, std::size_t size);
bool write_guest(std::uintptr_t address, const void* in, std::size_t size);

} // namespace preload
