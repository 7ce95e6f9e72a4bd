// What slotag-show reports, put together from a registration preview: the
// controllers with their slots and the records of the adapters under them,
// the records outside, the table lines that get no record, the problems.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "hotplug/preview.h"
#include "show/physical_slots.h"

// A table line: its label word and where it stands.
struct TableLine {
    uint32_t line = 0;
    std::string entry;  // the whole first word
    std::string label;  // the text before its first ","
};

struct AdapterView {
    const HbaInfo *record;
    TableLine line;                    // the line the record was built from
    std::vector<TableLine> duplicates; // later lines naming the same function
    bool ids_known = false;            // vendor and device IDs found in the snapshot
    uint16_t vendor_id = 0;
    uint16_t device_id = 0;
    const LineToken *alterpm_entry;    // the alterpm.conf entry that matched, or null
};

struct ControllerView {
    const ShpcInfo *record;
    bool speed_known = false;  // SHPC: the bus speed code is one of the five
    unsigned first_device = 0; // SHPC: the slots at the current speed
    unsigned slot_count = 0;
    std::vector<SlotView> slots;
    std::vector<AdapterView> adapters;
};

struct DuplicateView {
    TableLine line;
    std::string bus_id;
    uint32_t same_as_line;  // the line whose record stands for it (0: none)
};

struct ProblemView {
    const PreviewProblem *problem;
    const char *file;       // the file the token is from, or null
    bool has_line = false;  // a table or alterpm.conf line
    TableLine line;         // for a busID: its line; for an entry: line and text
    std::string bus_id;     // for a busID
};

struct ShowModel {
    const RegistrationPreview *preview;
    bool built = false;  // records exist (the build did not stop)
    std::vector<ControllerView> controllers;
    std::vector<AdapterView> outside;
    std::vector<DuplicateView> duplicates;
    std::vector<ProblemView> problems;
    bool would_succeed() const { return built && problems.empty(); }
};

// conf_file names the label table in the problems.
ShowModel make_show_model(const RegistrationPreview &preview, const char *conf_file);

// The name of an SHPC bus speed code, or null for an unknown one.
const char *shpc_speed_name(uint32_t sec_bus_config);
const char *shpc_speed_key(uint32_t sec_bus_config);
