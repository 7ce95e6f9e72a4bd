// What slotag-show reports, put together from a registration plan: the
// controllers with their slots and the records of the adapters under them,
// the records outside, the table lines that get no record, the problems.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "hotplug/plan.h"
#include "hotplug/physical_slots.h"
#include "show/explanations.h"

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
    const ShpcBusSpeed *speed = nullptr;  // SHPC: null for an unknown speed code
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
    const PlanProblem *problem;
    const char *file;       // the file the token is from, or null
    bool has_line = false;  // a table or alterpm.conf line
    TableLine line;         // for a busID: its line; for an entry: line and text
    std::string bus_id;     // for a busID
    const Explanation *explanation = nullptr;  // what is wrong and what to do
    std::string detail;               // what is known of this case, or ""
    bool looked_nearby = false;       // a busID naming no function: the functions
    std::vector<std::string> nearby;  // near it (the same device, else the same bus)
};

struct ShowModel {
    const RegistrationPlan *plan;
    bool built = false;  // records exist (the build did not stop)
    std::vector<ControllerView> controllers;
    std::vector<AdapterView> outside;
    std::vector<DuplicateView> duplicates;
    std::vector<ProblemView> problems;
    std::unique_ptr<PlanProblem> driver_node;  // the driver's node, when it is a problem
    bool would_succeed() const { return built && problems.empty(); }
};

// conf_file names the label table in the problems.
ShowModel make_show_model(const RegistrationPlan &plan, const char *conf_file);
