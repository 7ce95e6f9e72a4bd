// Putting the replacement report together: the slot through the plan, the
// labels from the table, the dependents from the storage use read once.
#include "show/targets_model.h"

#include <algorithm>
#include <fcntl.h>
#include <unistd.h>

#include "lib/unique_fd.h"

namespace {

constexpr const char *SYSFS_SLOTS = "/sys/bus/pci/slots/";

std::vector<LabelLine> labels_of(const std::string &bus_id)
{
    std::vector<LabelLine> out;
    for (const TargetAdapter &t : table_lines_of(bus_id))
        out.push_back({t.line, t.label, t.entry});
    return out;
}

// A slot file counts when the kernel answers a read of it: Linux's acpiphp
// lists an attention file for every slot but refuses it (EINVAL) when
// firmware drives the slot and there is no indicator to read or set.
bool answers(const std::string &path)
{
    UniqueFd fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    char state[16];
    return fd && read(fd.get(), state, sizeof state) >= 0;
}

Feature feature(const std::vector<std::string> &names, const char *file)
{
    if (names.empty())
        return Feature::UNKNOWN;
    for (const std::string &name : names)
        if (answers(SYSFS_SLOTS + name + "/" + file))
            return Feature::PRESENT;
    return Feature::ABSENT;
}

// Whether the adapter is among paths, and whether it is all of them.
bool through(const std::vector<std::string> &paths, const std::string &bus_id, bool &last)
{
    last = std::all_of(paths.begin(), paths.end(), [&](const std::string &p) { return p == bus_id; });
    return std::find(paths.begin(), paths.end(), bus_id) != paths.end();
}

void add_block_reasons(const BlockUse &b, std::vector<std::string> &reasons)
{
    const std::string dev = b.name[0] == '/' ? b.name : "/dev/" + b.name;
    for (const std::string &m : b.mounts)
        reasons.push_back("mounted at " + m + " (" + dev + ")");
    if (b.swap)
        reasons.push_back("swap on " + dev);
    if (!b.on.empty() && b.mounts.empty() && !b.swap)
        reasons.push_back(dev + (b.dm_name.empty() ? "" : " (" + b.dm_name + ")") +
                          " is built on /dev/" + b.on);
}

// What stops working when the adapter goes: only what it carries the last
// path of; a device with another path stays.
void find_dependents(TargetAdapterView &a, const StorageUse &storage)
{
    for (const DiskUse &d : storage.disks) {
        bool last;
        if (!through(d.adapters, a.bus_id, last))
            continue;
        a.disks.push_back({&d, last});
        if (!last)
            continue;
        if (!d.multipath.empty())
            a.reasons.push_back("last path of multipath device " + d.multipath + " (/dev/" +
                                d.name + ")");
        for (const BlockUse &b : d.blocks)
            add_block_reasons(b, a.reasons);
    }
    for (const VolumeUse &v : storage.volumes) {
        bool last;
        if (!through(v.adapters, a.bus_id, last))
            continue;
        a.volumes.push_back({&v, last});
        if (!last)
            continue;
        a.reasons.push_back("last path of volume " + v.path);
        add_block_reasons(v.use, a.reasons);
    }
}

TargetAdapterView adapter_view(const TargetAdapter &t, const RegistrationPlan &plan,
                               const std::vector<SysfsSlot> &sysfs, const StorageUse &storage)
{
    TargetAdapterView a;
    a.bus_id = t.bus_id;
    a.labels = labels_of(t.bus_id);
    a.place = find_slot(plan, t.domain, t.bus, t.device, sysfs);
    a.attention = feature(a.place.slot.sysfs_names, "attention");
    a.presence = feature(a.place.slot.sysfs_names, "adapter");
    find_dependents(a, storage);
    return a;
}

} // namespace

bool TargetsModel::all_resolved() const
{
    return std::all_of(targets.begin(), targets.end(),
                       [](const TargetView &t) { return t.target->resolved; });
}

TargetsModel make_targets_model(const std::vector<Target> &targets, const RegistrationPlan &plan,
                                const StorageUse &storage)
{
    std::vector<SysfsSlot> sysfs = read_sysfs_slots();
    TargetsModel m;
    for (const Target &t : targets) {
        TargetView v{&t, {}};
        for (const TargetAdapter &ta : t.adapters) {
            auto same = [&ta](const TargetAdapterView &a) { return a.bus_id == ta.bus_id; };
            if (std::none_of(v.adapters.begin(), v.adapters.end(), same))
                v.adapters.push_back(adapter_view(ta, plan, sysfs, storage));
        }
        m.targets.push_back(std::move(v));
    }
    return m;
}

std::string verdict(const TargetAdapterView &a)
{
    if (a.reasons.empty())
        return "nothing depends on it";
    std::string text = "in use: ";
    for (size_t i = 0; i < a.reasons.size(); i++)
        text += (i ? ", " : "") + a.reasons[i];
    return text;
}

const char *kind_name(TargetKind kind)
{
    switch (kind) {
    case TargetKind::BUS_ID: return "busID";
    case TargetKind::LABEL: return "label";
    case TargetKind::DEVICE_PATH: return "device path";
    case TargetKind::CLASS: return "volume-manager class";
    }
    return "";
}
