// The replacement report as JSON, written in the style of the registration
// report: stable keys (documented in slotag-show(8)), null for what is not
// known, one object per operand and per adapter.
#include <cinttypes>

#include "lib/json_text.h"
#include "show/targets_writers.h"

namespace {

// between: ", " on one line, or "," before an item that starts a line.
template <class List, class WriteItem>
void write_list(FILE *out, const List &list, WriteItem write_item, const char *between = ", ")
{
    fputc('[', out);
    const char *sep = "";
    for (const auto &item : list) {
        fputs(sep, out);
        write_item(item);
        sep = between;
    }
    fputc(']', out);
}

void write_strings(FILE *out, const std::vector<std::string> &list)
{
    write_list(out, list, [out](const std::string &s) { json_string(out, s); });
}

const char *feature(Feature f)
{
    return f == Feature::PRESENT ? "true" : f == Feature::ABSENT ? "false" : "null";
}

const char *kind_key(TargetKind kind)
{
    switch (kind) {
    case TargetKind::BUS_ID: return "bus_id";
    case TargetKind::LABEL: return "label";
    case TargetKind::DEVICE_PATH: return "device_path";
    case TargetKind::CLASS: return "class";
    }
    return "";
}

void write_slot(FILE *out, const TargetAdapterView &a)
{
    const SlotPlace &p = a.place;
    const char *state = p.found == SlotPlace::Found::IN_SLOT   ? "in_slot"
                        : p.found == SlotPlace::Found::OUTSIDE ? "outside"
                                                               : "unknown";
    fprintf(out, "\"slot\": {\"state\": \"%s\", ", state);
    if (p.controller) {
        fprintf(out, "\"controller\": {\"bus_id\": ");
        json_string(out, p.controller->bus_id);
        fprintf(out, ", \"kind\": \"%s\"}, \"physical_slot\": ", controller_key(*p.controller));
    } else {
        fprintf(out, "\"controller\": null, \"physical_slot\": ");
    }
    if (p.slot.physical >= 0)
        fprintf(out, "%ld", p.slot.physical);
    else
        fputs("null", out);
    fprintf(out, ", \"kernel_slots\": ");
    write_strings(out, p.slot.sysfs_names);
    fprintf(out, ", \"power_controller\": %s, \"attention_indicator\": %s, "
                 "\"presence_detect\": %s}",
            p.controller ? "true" : "null", feature(a.attention), feature(a.presence));
}

void write_block(FILE *out, const BlockUse &b)
{
    fprintf(out, "{\"name\": ");
    json_string(out, b.name);
    fprintf(out, ", \"on\": ");
    json_string_or_null(out, b.on);
    fprintf(out, ", \"dm_name\": ");
    json_string_or_null(out, b.dm_name);
    fprintf(out, ", \"mounts\": ");
    write_strings(out, b.mounts);
    fprintf(out, ", \"swap\": %s}", b.swap ? "true" : "false");
}

void write_adapter(FILE *out, const TargetAdapterView &a)
{
    fprintf(out, "\n    {\"bus_id\": ");
    json_string(out, a.bus_id);
    fprintf(out, ",\n     \"labels\": ");
    write_list(out, a.labels, [out](const LabelLine &l) {
        fprintf(out, "{\"line\": %" PRIu32 ", \"label\": ", l.line);
        json_string(out, l.label);
        fprintf(out, ", \"entry\": ");
        json_string(out, l.entry);
        fputc('}', out);
    });
    fprintf(out, ",\n     ");
    write_slot(out, a);
    fprintf(out, ",\n     \"disks\": ");
    write_list(out, a.disks, [out](const DiskDependent &d) {
        fprintf(out, "\n      {\"name\": ");
        json_string(out, d.disk->name);
        fprintf(out, ", \"multipath_device\": ");
        json_string_or_null(out, d.disk->multipath);
        fprintf(out, ", \"paths\": ");
        write_strings(out, d.disk->adapters);
        fprintf(out, ", \"last_path\": %s,\n       \"blocks\": ", d.last_path ? "true" : "false");
        write_list(out, d.disk->blocks, [out](const BlockUse &b) { write_block(out, b); });
        fputc('}', out);
    }, ",");
    fprintf(out, ",\n     \"volumes\": ");
    write_list(out, a.volumes, [out](const VolumeDependent &v) {
        fprintf(out, "\n      {\"path\": ");
        json_string(out, v.volume->path);
        fprintf(out, ", \"paths\": ");
        write_strings(out, v.volume->adapters);
        fprintf(out, ", \"last_path\": %s, \"mounts\": ", v.last_path ? "true" : "false");
        write_strings(out, v.volume->use.mounts);
        fprintf(out, ", \"swap\": %s}", v.volume->use.swap ? "true" : "false");
    }, ",");
    fprintf(out, ",\n     \"in_use\": %s, \"reasons\": ", a.reasons.empty() ? "false" : "true");
    write_strings(out, a.reasons);
    fprintf(out, ", \"verdict\": ");
    json_string(out, verdict(a));
    fputc('}', out);
}

} // namespace

bool write_targets_json(FILE *out, const TargetsModel &m)
{
    fprintf(out, "{\"targets\": [");
    const char *sep = "\n";
    for (const TargetView &t : m.targets) {
        fprintf(out, "%s  {\"operand\": ", sep);
        sep = ",\n";
        json_string(out, t.target->operand);
        fprintf(out, ", \"resolved_as\": \"%s\", \"resolved\": %s,\n   \"adapters\": [",
                kind_key(t.target->kind), t.target->resolved ? "true" : "false");
        const char *asep = "";
        for (const TargetAdapterView &a : t.adapters) {
            fputs(asep, out);
            write_adapter(out, a);
            asep = ",";
        }
        fprintf(out, "]}");
    }
    fprintf(out, "\n]}\n");
    return fflush(out) == 0 && !ferror(out);
}
