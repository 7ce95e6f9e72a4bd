// What became of each adapter slotag-locate was asked about, and the exit
// statuses that summarise it.
#pragma once

#include <string>
#include <vector>

// Exit statuses. They go up the further an operand got on its way to the
// slot's indicator, so that several failures are summed up by the highest
// (see exit_status()).
constexpr int EXIT_DONE = 0;           // every indicator was set
constexpr int EXIT_CANNOT_RUN = 1;     // not root, command line, lock, label table
constexpr int EXIT_NO_ADAPTER = 2;     // an operand names no adapter
constexpr int EXIT_NOT_IN_SLOT = 3;    // an adapter outside every hot-plug slot
constexpr int EXIT_NO_KERNEL_SLOT = 4; // the kernel lists no slot at its address
constexpr int EXIT_NO_INDICATOR = 5;   // the kernel's slot has no attention file
constexpr int EXIT_REFUSED = 6;        // the kernel refused the change (errno)

// One adapter an operand named, or the operand alone when it named none.
struct LocateOutcome {
    std::string operand;
    std::string bus_id;         // empty: the operand named no adapter
    std::string controller;     // the hot-plug controller's busID, empty: none
    std::string slot_address;   // "DDDD:BB:DD", or "DDDD:BB" for a port's slot
    long physical_slot = -1;    // -1: the hardware states none
    std::string kernel_slot;    // the /sys/bus/pci/slots entry written
    std::string state;          // what the kernel reads back: "on", "off", ...
    int status = EXIT_DONE;
    std::string reason;         // in plain words, when status is not EXIT_DONE
};

// The status of a whole run: the highest of its outcomes. Taking the
// highest keeps the status independent of the order of the operands, and
// puts a slot that would not take the change above a typing mistake in
// another operand.
int exit_status(const std::vector<LocateOutcome> &outcomes);
