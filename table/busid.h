// PCI function addresses (busIDs) in the kernel's text form DDDD:BB:DD.F.
#pragma once

#include <cstdint>

struct BusId {
    uint16_t domain;
    uint8_t bus;
    uint8_t device;
    uint8_t function;
};

// Parses text (whose NUL must lie within `limit` bytes) into its four
// hexadecimal parts; every out pointer may be null. Refusals are printed and
// logged here. Returns 0 or -1.
int parse_busid(const char *text, uint32_t limit, uint16_t *domain, uint8_t *bus,
                uint8_t *device, uint8_t *function);
