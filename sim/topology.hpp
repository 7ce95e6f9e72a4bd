#pragma once
// The topology description: which PCI functions the simulated server has,
// in which order sysfs lists them, how the driver answers, and extra files.
// The grammar is described in README.md.

#include "numbers.hpp"
#include "state_files.hpp"
#include "storage_desc.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

// One entry of a function's capability list. body holds the bytes from
// capability offset + 2 on (after the ID and the next pointer).
struct Capability {
    std::uint8_t id = 0;
    std::optional<std::uint8_t> offset; // chosen by the generator when absent
    std::vector<std::uint8_t> body;
};

struct ConfigPoke {
    unsigned offset = 0;
    unsigned width = 1;
    std::uint32_t value = 0;
};

struct PciFunctionDesc {
    PciAddress address;
    int line = 0;
    std::uint16_t vendor = 0x8086;
    std::uint16_t device = 0xffff;
    std::uint8_t revision = 0;
    std::uint32_t class_code = 0; // base class, subclass, programming interface
    std::uint8_t header_type = 0; // low 7 bits
    bool multi_function = false;
    unsigned config_size = 256;
    std::uint16_t command = 0x0006;
    std::optional<std::uint16_t> status; // computed from the capabilities when absent
    std::uint16_t subsystem_vendor = 0;
    std::uint16_t subsystem_device = 0;
    std::uint8_t primary_bus = 0;
    std::uint8_t secondary_bus = 0;
    std::uint8_t subordinate_bus = 0;
    std::vector<Capability> capabilities;
    // SHPC register file behind the DWORD Select/Data window, when the
    // function has the SHPC capability (index into capabilities).
    std::optional<std::size_t> shpc_capability;
    std::map<std::uint8_t, std::uint32_t> shpc_registers;
    std::vector<ConfigPoke> pokes; // raw writes applied last

    bool is_bridge() const { return header_type == 1; }
};

struct FileDirective {
    enum class Kind { file, dir, symlink, remove } kind = Kind::file;
    std::string path; // relative to ROOT
    std::string content;  // file content, or symlink target
    unsigned mode = 0644;
};

struct Topology {
    std::vector<PciFunctionDesc> functions;
    // Names of /sys/bus/pci/devices in listing order: functions and extra
    // entries as they appear, unless an "order" statement replaced it.
    std::vector<std::string> listing;
    std::vector<std::string> extra_entries; // directories that are not functions
    state::DriverRules driver;
    bool driver_absent = false;
    int fsync_signal = 0; // sent to the program at each fsync; 0: none
    std::vector<FileDirective> files;
    StorageDesc storage;
};

// Throws std::runtime_error "FILE:LINE: message" on a malformed description.
Topology parse_topology(const std::string& text, const std::string& file_name);
