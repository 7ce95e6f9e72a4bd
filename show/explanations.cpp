// One table of every explanation, so that the words are read, checked and
// changed in one place. A site of 0 gives a stage's general words.
#include "show/explanations.h"

namespace {

struct Entry {
    PlanStage stage;
    unsigned site;
    Explanation words;
};

constexpr Explanation NO_MEMORY = {
    "Memory ran out while the records were being built.",
    "Run again when more memory is free; a very large label table needs more."};

constexpr Explanation BUSID_FORM = {
    "The busID does not have the form DDDD:BB:DD.F (domain, bus, device and function, "
    "in hexadecimal).",
    "Correct it in hba_addr.conf as lspci -D names the function, or remove the label "
    "(slotag -d LABEL) and add it again from one of its disks (slotag -a DEVICE)."};

constexpr Explanation BRIDGE_UNREADABLE = {
    "The configuration space of a bridge could not be read while the hot-plug controllers "
    "were being looked for.",
    "The function named below may be failing or going away: look for it in the kernel log "
    "(dmesg) and in lspci -vv, then run again."};

constexpr Entry TABLE[] = {
    {PlanStage::ALTERPM, 0xc3b,
     {"alterpm.conf cannot be read: it is missing, not a regular file, or cannot be opened. "
      "slotag -r reads it before anything else and stops without it.",
      "Create it: an empty file (mode 0644, owner root) is valid and marks no adapter; "
      "reinstalling the package brings back the one it ships."}},
    {PlanStage::ALTERPM, 0xbd7,
     {"An alterpm.conf entry lacks a field: each entry is VENDOR:DEVICE:REVISION.",
      "Complete it, e.g. 1077:2532:* for every revision of that card (lspci -n shows the "
      "IDs), or delete the line."}},
    {PlanStage::ALTERPM, 0xbe4,
     {"An alterpm.conf entry holds a character that is not a hexadecimal digit (a 0x "
      "prefix or a fourth field count as such).",
      "Write it as VENDOR:DEVICE:REVISION in hexadecimal without 0x, e.g. 1077:2532:03 or "
      "1077:2532:*, or delete the line."}},
    {PlanStage::ALTERPM, 0xbcf, NO_MEMORY},
    {PlanStage::ALTERPM, 0,
     {"An alterpm.conf entry cannot be read.", "Correct or delete the entry."}},

    {PlanStage::BUS, 0xdc5,
     {"The PCI bus could not be read: a name in /sys/bus/pci/devices is not a PCI address, "
      "or a function's configuration space could not be read. slotag -r reads the whole "
      "bus first.",
      "The last message names the function where the scan stopped, with a status code "
      "(see slotag(8)). Look for it in the kernel log (dmesg) and run again when no card is "
      "being added or removed."}},
    {PlanStage::BUS, 0x9aa, BRIDGE_UNREADABLE},
    {PlanStage::BUS, 0x9b5, BRIDGE_UNREADABLE},
    {PlanStage::BUS, 0xa5b, BRIDGE_UNREADABLE},
    {PlanStage::BUS, 0xa7c, BRIDGE_UNREADABLE},
    {PlanStage::BUS, 0xa89, BRIDGE_UNREADABLE},
    {PlanStage::BUS, 0xac2, BRIDGE_UNREADABLE},
    {PlanStage::BUS, 0xad8, BRIDGE_UNREADABLE},
    {PlanStage::BUS, 0x9d0, NO_MEMORY},
    {PlanStage::BUS, 0xc55, NO_MEMORY},
    {PlanStage::BUS, 0xdbc, NO_MEMORY},
    {PlanStage::BUS, 0xddd, NO_MEMORY},
    {PlanStage::BUS, 0,
     {"The hot-plug controllers could not be found, so no record could be built.",
      "Read the messages below, look in the kernel log (dmesg), and run again."}},

    {PlanStage::BUSID, 0x321, BUSID_FORM},
    {PlanStage::BUSID, 0x32a, BUSID_FORM},
    {PlanStage::BUSID, 0x319, NO_MEMORY},
    {PlanStage::BUSID, 0, BUSID_FORM},

    {PlanStage::PLACEMENT, 0,
     {"An SHPC bridge states a bus speed slotag does not know (code 5 to 7 in its Secondary "
      "Bus Configuration register), so which device numbers its slots hold cannot be told. "
      "slotag -r tries against it every busID that no earlier controller holds, and stops "
      "at the first.",
      "Check the bridge's bus mode (lspci -vv of the bridge named below, the firmware "
      "setup); until it states a known speed, remove the labels that reach it."}},

    {PlanStage::ADAPTER, 0xccb,
     {"No PCI function answers at this busID: the card is gone, or the bus was renumbered "
      "(a card or bridge added or removed, a firmware change).",
      "If the card moved, remove the label (slotag -d LABEL) and add it again from one of "
      "its disks (slotag -a DEVICE), which finds its busID afresh; if it is gone for good, "
      "remove the label."}},
    {PlanStage::ADAPTER, 0xcd5,
     {"The adapter is on the bus, but its revision ID cannot be read from its configuration "
      "space.",
      "The card may be failing or going away: look for it in the kernel log (dmesg) and in "
      "lspci -vv, then run again."}},
    {PlanStage::ADAPTER, 0xce2,
     {"The function has no PCI power-management capability, which slotag -r requires of "
      "every labelled adapter, in a hot-plug slot or not. alterpm.conf does not lift this: "
      "it only marks adapters that have the capability.",
      "Check that the line names the HBA itself (lspci -vv lists \"Power Management\" for "
      "it): a wrong device or function number gives this. Otherwise remove the label "
      "(slotag -d LABEL)."}},
    {PlanStage::ADAPTER, 0xcf8,
     {"The busID text is longer than the 19 characters the driver's record holds (extra "
      "leading zeros, say).",
      "Write it as DDDD:BB:DD.F in hba_addr.conf, or remove the label (slotag -d LABEL) and "
      "add it again (slotag -a DEVICE)."}},
    {PlanStage::ADAPTER, 0,
     {"The adapter's record could not be built.", "Read the messages below."}},

    {PlanStage::DRIVER, 0xe57,
     {"/dev/slotag, the hot-plug driver's device, does not exist: the driver is not loaded, "
      "or udev has not made its node.",
      "Load the hot-plug driver's kernel module. When its node appears, the package's udev "
      "rule (60-slotag.rules) runs slotag -r by itself."}},
    {PlanStage::DRIVER, 0,
     {"/dev/slotag is not a character device, so it is not the driver's node: something "
      "other than udev made it (a copy, a link, a command that wrote to that path).",
      "Remove it (rm /dev/slotag), then reload the hot-plug driver or run udevadm trigger, "
      "so that udev makes the real node."}},
};

} // namespace

const Explanation &explain(PlanStage stage, unsigned site)
{
    const Entry *general = nullptr;
    for (const Entry &e : TABLE) {
        if (e.stage != stage)
            continue;
        if (e.site == site)
            return e.words;
        if (e.site == 0)
            general = &e;
    }
    static constexpr Explanation UNKNOWN = {"slotag -r would stop here.",
                                            "Read the messages below."};
    return general ? general->words : UNKNOWN;
}
