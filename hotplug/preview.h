// A registration built but not sent: the records the driver would be given,
// the table entry behind each adapter record, and every problem that would
// make the registration fail, gathered with the registration's own checks
// and messages instead of stopping at the first.
#pragma once

#include <cstdint>
#include <memory>
#include <unordered_set>
#include <vector>

#include "cli/report.h"
#include "hotplug/pci_access.h"
#include "hotplug/records.h"
#include "table/token_list.h"

// Where in a registration a problem is met; a registration stops at the
// first problem of the earliest stage.
enum class PreviewStage {
    ALTERPM = 0,    // alterpm.conf unreadable, or an entry that does not parse
    BUS = 1,        // the bus scan, controller discovery or memory: nothing built
    BUSID = 2,      // a busID of the table that does not parse
    PLACEMENT = 3,  // a busID tried against an SHPC at an unknown bus speed
    ADAPTER = 4,    // an adapter absent, unreadable, without PM, or a busID too long
};

struct PreviewProblem {
    PreviewStage stage;
    unsigned site;            // the first site number the messages name (0: none)
    const LineToken *token;   // the busID or alterpm.conf entry; null for a file or the bus
    std::vector<std::string> messages;  // what the registration would print and log
};

struct PreviewAdapter {
    const LineToken *busid;          // the table word the record was built from
    int controller;                  // index into the controller table, -1 outside
    uint32_t index;                  // record number within its list
    const LineToken *alterpm_entry;  // the entry that gave the mark, or null
};

struct RegistrationPreview {
    std::unique_ptr<PciSnap> snap;     // the build's snapshot, kept for look-ups
    ShpcInfoTable *table = nullptr;    // null when the build stopped
    HbaInfoList *outside = nullptr;
    std::vector<PreviewAdapter> adapters;  // in the order the records were filled
    std::vector<PreviewProblem> problems;  // by stage, then in the order met
    std::unordered_set<const LineToken *> refused;  // busIDs that got a problem, no record
    CapturedMessages messages;         // what the checks said since the last problem
};

// Records a problem of that stage with the messages gathered since the last
// one.
void add_preview_problem(RegistrationPreview &p, PreviewStage stage, const LineToken *token);

// Reads alterpm.conf and builds the records from the label table and a new
// snapshot, as the register step does, without calling the driver and
// without printing or logging: every message is kept with its problem.
// 0 when records were built (problems may still exist), -1 when the build
// stopped (the reason is the last problem).
int preview_registration(RegistrationPreview &p);
