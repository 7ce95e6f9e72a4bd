// The replacement report: for each operand of slotag-show, the adapters it
// leads to, where each sits, what depends on it and whether it can be
// pulled.
#pragma once

#include <string>
#include <vector>

#include "hotplug/plan.h"
#include "hotplug/slot_lookup.h"
#include "resolve/targets.h"
#include "show/storage_use.h"

struct LabelLine {
    uint32_t line;
    std::string label;
    std::string entry;
};

// The kernel slot's files that matter when the card is replaced; unknown
// when the kernel lists no slot there.
enum class Feature { UNKNOWN, ABSENT, PRESENT };

struct DiskDependent {
    const DiskUse *disk;
    bool last_path;  // every path of the disk goes through this adapter
};

struct VolumeDependent {
    const VolumeUse *volume;
    bool last_path;
};

struct TargetAdapterView {
    std::string bus_id;
    std::vector<LabelLine> labels;  // every table line naming it
    SlotPlace place;
    Feature attention = Feature::UNKNOWN;
    Feature presence = Feature::UNKNOWN;
    std::vector<DiskDependent> disks;
    std::vector<VolumeDependent> volumes;
    std::vector<std::string> reasons;  // empty: nothing depends on it
};

struct TargetView {
    const Target *target;
    std::vector<TargetAdapterView> adapters;  // each busID once
};

struct TargetsModel {
    std::vector<TargetView> targets;
    bool all_resolved() const;
};

TargetsModel make_targets_model(const std::vector<Target> &targets, const RegistrationPlan &plan,
                                const StorageUse &storage);

// "nothing depends on it" or "in use: REASON, REASON..."
std::string verdict(const TargetAdapterView &a);
// "label", "busID", "device path", "volume-manager class"
const char *kind_name(TargetKind kind);
