// The adapters an administrator names on a command line: by busID, by a
// label of the table, by device path (as slotag -a takes it) or by
// volume-manager class name, each turned into the busIDs it leads to.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

enum class TargetKind { BUS_ID, LABEL, DEVICE_PATH, CLASS };

// One adapter a name leads to: the first word of the table line that names
// it (made by the resolver, or found in the table), and its busID.
struct TargetAdapter {
    std::string entry;   // empty for a busID given as such
    std::string label;   // the entry up to its first ","
    std::string bus_id;  // "%04x:%02x:%02x.%x"
    uint16_t domain = 0; // the busID's parts
    uint8_t bus = 0;
    uint8_t device = 0;
    uint8_t function = 0;
    uint32_t line = 0;   // the table line, else 0
};

struct Target {
    std::string operand;
    TargetKind kind = TargetKind::CLASS;
    bool resolved = false;  // false: reported (the resolvers print their own errors)
    std::vector<TargetAdapter> adapters;
};

// Sets up the resolvers as the add mode does; 0, or -1 (reported). Once,
// before the first target.
int prepare_targets();

// An operand: a busID, else a label of the loaded table, else a device path
// (it starts with "/"), else a class name. The table is left as loaded.
Target resolve_target(const char *operand);

// A device path through the add mode's resolver, quietly: the adapters of
// the lines it would add (one per path). -1 when it does not resolve.
int device_adapters(const char *device_path, std::vector<TargetAdapter> &out);

// A busID as the table reads it: its parts and its canonical form in out,
// or false when text is none (quietly).
bool parse_adapter(const char *text, TargetAdapter &out);

// Every line of the loaded table that names bus_id (canonical form).
std::vector<TargetAdapter> table_lines_of(const std::string &bus_id);
