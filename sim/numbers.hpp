#pragma once
// Number and name parsing shared by the topology reader and the state files.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Decimal, or hexadecimal with a 0x prefix; the whole text must be used and
// the value must not exceed max. (No octal: "08" is eight.)
std::optional<std::uint64_t> parse_number(std::string_view text, std::uint64_t max);

// An errno value by its symbolic name (EIO, EINVAL, ...) or as a number.
std::optional<int> parse_errno(std::string_view text);
std::string errno_name(int err);

struct PciAddress {
    std::uint16_t domain = 0;
    std::uint8_t bus = 0;
    std::uint8_t device = 0;
    std::uint8_t function = 0;

    // "%04x:%02x:%02x.%x", the name sysfs gives the function.
    std::string name() const;
    friend bool operator==(const PciAddress&, const PciAddress&) = default;
};

// "DDDD:BB:DD.F" or "BB:DD.F" (domain 0), hexadecimal; device < 32, function < 8.
std::optional<PciAddress> parse_pci_address(std::string_view text);
