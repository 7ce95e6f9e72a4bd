// The replacement report in words: per operand, per adapter, where it sits,
// what is behind it, and the verdict last.
#include <cinttypes>

#include "show/targets_writers.h"

namespace {

const char *yes_no(Feature f)
{
    return f == Feature::PRESENT ? "yes" : f == Feature::ABSENT ? "no" : "unknown";
}

void write_slot(FILE *out, const TargetAdapterView &a)
{
    const SlotPlace &p = a.place;
    if (p.found == SlotPlace::Found::OUTSIDE) {
        fprintf(out, "    slot: none: the adapter is in no hot-plug slot and cannot be replaced "
                     "while the server runs\n");
        return;
    }
    if (p.found == SlotPlace::Found::UNKNOWN) {
        fprintf(out, "    slot: unknown: the hot-plug controllers could not all be read "
                     "(slotag-show without operands says why)\n");
        return;
    }
    fprintf(out, "    slot: ");
    if (p.slot.physical >= 0)
        fprintf(out, "physical slot %ld", p.slot.physical);
    else
        fprintf(out, "no physical slot number");
    if (p.slot.sysfs_names.empty())
        fprintf(out, ", no kernel slot");
    for (const std::string &name : p.slot.sysfs_names)
        fprintf(out, ", kernel slot %s", name.c_str());
    fprintf(out, ", on %s %s\n", controller_kind(*p.controller), p.controller->bus_id);
    fprintf(out, "    power controller: yes, attention indicator: %s, presence detect: %s%s\n",
            yes_no(a.attention), yes_no(a.presence),
            a.attention == Feature::UNKNOWN ? " (the kernel lists no slot here)" : "");
}

void write_paths(FILE *out, const std::vector<std::string> &paths, const TargetAdapterView &a,
                 bool last)
{
    if (last) {
        fprintf(out, ": only through this adapter");
        return;
    }
    fprintf(out, ": also through");
    for (const std::string &p : paths)
        if (p != a.bus_id)
            fprintf(out, " %s", p.c_str());
}

void write_block(FILE *out, const BlockUse &b, bool whole_disk)
{
    if (whole_disk && b.mounts.empty() && !b.swap)
        return;  // the disk line says it
    fprintf(out, "      %s%s", b.name[0] == '/' ? "" : "/dev/", b.name.c_str());
    if (!b.dm_name.empty())
        fprintf(out, " (%s)", b.dm_name.c_str());
    if (!b.on.empty())
        fprintf(out, " on /dev/%s", b.on.c_str());
    const char *sep = ": ";
    for (const std::string &m : b.mounts) {
        fprintf(out, "%smounted at %s", sep, m.c_str());
        sep = ", ";
    }
    if (b.swap) {
        fprintf(out, "%sswap", sep);
        sep = ", ";
    }
    if (b.mounts.empty() && !b.swap)
        fprintf(out, ": neither mounted nor swap");
    fputc('\n', out);
}

void write_adapter(FILE *out, const TargetAdapterView &a)
{
    fprintf(out, "  adapter %s\n    labels:", a.bus_id.c_str());
    if (a.labels.empty())
        fprintf(out, " none");
    const char *sep = " ";
    for (const LabelLine &l : a.labels) {
        fprintf(out, "%s%s (line %" PRIu32 ")", sep, l.label.c_str(), l.line);
        sep = ", ";
    }
    fputc('\n', out);
    write_slot(out, a);
    for (const DiskDependent &d : a.disks) {
        fprintf(out, "    disk /dev/%s", d.disk->name.c_str());
        if (!d.disk->multipath.empty())
            fprintf(out, " (multipath device %s)", d.disk->multipath.c_str());
        write_paths(out, d.disk->adapters, a, d.last_path);
        fputc('\n', out);
        for (size_t i = 0; i < d.disk->blocks.size(); i++)
            write_block(out, d.disk->blocks[i], i == 0);
    }
    for (const VolumeDependent &v : a.volumes) {
        fprintf(out, "    volume %s", v.volume->path.c_str());
        write_paths(out, v.volume->adapters, a, v.last_path);
        fputc('\n', out);
        write_block(out, v.volume->use, true);
    }
    fprintf(out, "    verdict: %s\n", verdict(a).c_str());
}

} // namespace

const char *controller_kind(const ShpcInfo &c)
{
    return c.magic == PCIE_PORT_MAGIC ? "PCI Express port" : "SHPC bridge";
}

const char *controller_key(const ShpcInfo &c)
{
    return c.magic == PCIE_PORT_MAGIC ? "pcie_port" : "shpc";
}

bool write_targets_text(FILE *out, const TargetsModel &m)
{
    const char *sep = "";
    for (const TargetView &t : m.targets) {
        fprintf(out, "%s%s (%s): ", sep, t.target->operand.c_str(), kind_name(t.target->kind));
        sep = "\n";
        if (!t.target->resolved) {
            fprintf(out, "not resolved\n");
            continue;
        }
        fprintf(out, "%zu %s\n", t.adapters.size(), t.adapters.size() == 1 ? "adapter" : "adapters");
        for (const TargetAdapterView &a : t.adapters)
            write_adapter(out, a);
    }
    return fflush(out) == 0 && !ferror(out);
}
