// The registration plan: what `slotag -r` hands the driver, worked out from
// alterpm.conf, the label table and one PCI snapshot, with what became of
// every busID of the table. The register step plans, stopping at the first
// problem, and sends; slotag-show plans, collecting every problem, and
// reports. Both therefore read the same decisions.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "hotplug/alterpm.h"  // ALTERPM_CONF, the file of that stage
#include "hotplug/busid_tokens.h"
#include "hotplug/pci_access.h"
#include "hotplug/records.h"
#include "hotplug/shpc.h"
#include "table/token_list.h"

enum class PlanMode {
    STOP_AT_FIRST,  // report each problem as it is met, and stop there
    COLLECT_ALL,    // print and log nothing: keep every problem with its messages
};

// Where in a registration a problem is met; a registration stops at the
// first problem of the earliest stage.
enum class PlanStage {
    ALTERPM = 0,    // alterpm.conf unreadable, or an entry that does not parse
    BUS = 1,        // the bus scan, controller discovery or memory: nothing built
    BUSID = 2,      // a busID of the table that does not parse
    PLACEMENT = 3,  // a busID tried against an SHPC at an unknown bus speed
    ADAPTER = 4,    // an adapter absent, unreadable, without PM, or a busID too long
    DRIVER = 5,     // the driver's node, opened once everything is built
};

struct PlanProblem {
    PlanStage stage;
    unsigned site;            // the first site number the messages name (0: none)
    const LineToken *token;   // the busID or alterpm.conf entry; null for a file or the bus
    size_t busid;             // a busID's index in the plan's busids, else BusIdWord::NONE
    std::vector<std::string> messages;  // what the registration would print and log
};

// The slots of one controller, as its placement decides them.
struct ControllerSlots {
    bool known = true;          // false: an SHPC at an unknown bus speed
    const ShpcBusSpeed *speed = nullptr;  // SHPC at a known speed
    uint32_t first_device = 0;  // SHPC: the device numbers of its slots
    uint32_t slot_count = 0;
    bool whole_bus = false;     // a PCI Express port: one slot, any device of its bus
};

struct RegistrationPlan {
    std::unique_ptr<PciSnap> snap;   // the snapshot the plan read
    ShpcInfoTable *table = nullptr;  // the driver blocks; null when planning stopped
    HbaInfoList *outside = nullptr;
    std::vector<BusIdWord> busids;     // one per busID word of the table, in file order
    std::vector<PlanProblem> problems; // collected: by stage, then in the order met

    bool built() const { return table && outside; }
    // The record a placed busID got.
    const HbaInfo &record(const BusIdWord &placed) const;
    // Controller i of the table: its slots, and its function in the snapshot.
    ControllerSlots slots(uint32_t i) const;
    const PciFunction *function(const ShpcInfo &controller) const;
};

// Reads alterpm.conf, takes a snapshot of the bus, finds the controllers
// and builds every record. 0 when the blocks are built (while collecting,
// problems may still exist), -1 when planning stopped (reported, or the
// last problem).
int plan_registration(TokenList &table, PlanMode mode, RegistrationPlan &plan);
