// Memory for the blocks handed to the hot-plug driver. The driver takes
// 32-bit addresses (the request argument and each controller's hba_list),
// so every block lies below 4 GiB, also in a 64-bit build. Blocks live until
// the process ends, like the records they hold.
#pragma once

#include <cstddef>
#include <cstdint>

// size zero-filled bytes below 4 GiB, or null (errno set) when the system
// has none to give.
void *alloc_driver_block(size_t size);

// The 32-bit address of a driver block, and back.
uint32_t driver_address(const void *block);
void *driver_pointer(uint32_t address);
