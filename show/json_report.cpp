// The JSON report. Field names are stable (documented in slotag-show(8)):
// the record fields carry the names the driver records use, with the values
// sent; the rest say where each record comes from.
#include <cinttypes>

#include "lib/json_text.h"
#include "show/report_writers.h"

namespace {

// The items of a list, each written by write_item, separated by ", " on
// one line, or one per line (",\n", the first after "\n").
template <class List, class WriteItem>
void write_items(FILE *out, const List &list, bool one_per_line, WriteItem write_item)
{
    const char *sep = one_per_line ? "\n" : "";
    for (const auto &item : list) {
        fputs(sep, out);
        write_item(item);
        sep = one_per_line ? ",\n" : ", ";
    }
}

// A string, or null when there is none.
void write_string_or_null(FILE *out, const char *s)
{
    if (s)
        json_string(out, s);
    else
        fputs("null", out);
}

// A number, or null when it is negative (not stated by the hardware).
void write_number_or_null(FILE *out, long n)
{
    if (n >= 0)
        fprintf(out, "%ld", n);
    else
        fputs("null", out);
}

void write_string_array(FILE *out, const std::vector<std::string> &list)
{
    fputc('[', out);
    write_items(out, list, false, [out](const std::string &item) { json_string(out, item); });
    fputc(']', out);
}

void write_line(FILE *out, const TableLine &l)
{
    fprintf(out, "\"line\": %" PRIu32 ", \"label\": ", l.line);
    json_string(out, l.label);
    fprintf(out, ", \"entry\": ");
    json_string(out, l.entry);
}

void write_adapter(FILE *out, const AdapterView &a, const char *indent)
{
    const HbaInfo &r = *a.record;
    fprintf(out, "%s{", indent);
    json_key(out, "bus_id");
    json_string(out, r.bus_id);
    fprintf(out, ", ");
    write_line(out, a.line);
    fprintf(out, ",\n%s \"magic\": %" PRIu32 ", \"alt_pm\": %" PRIu32 ", \"domain\": %u, "
                 "\"bus\": %u, \"device\": %u, \"function\": %u, \"revision\": %u, "
                 "\"pm_cap\": %u, \"header_type\": %u,\n",
            indent, r.magic.get(), r.alt_pm.get(), r.domain.get(), r.bus, r.device, r.function, r.revision,
            r.pm_cap, r.header_type);
    fprintf(out, "%s ", indent);
    if (a.ids_known)
        fprintf(out, "\"vendor_id\": %u, \"device_id\": %u, ", a.vendor_id, a.device_id);
    else
        fprintf(out, "\"vendor_id\": null, \"device_id\": null, ");
    json_key(out, "alterpm");
    if (a.alterpm_entry) {
        fprintf(out, "{\"line\": %" PRIu32 ", \"entry\": ", a.alterpm_entry->line);
        json_string(out, a.alterpm_entry->text);
        fputc('}', out);
    } else {
        fprintf(out, "null");
    }
    fprintf(out, ", \"duplicates\": [");
    write_items(out, a.duplicates, false, [out](const TableLine &d) {
        fputc('{', out);
        write_line(out, d);
        fputc('}', out);
    });
    fprintf(out, "]}");
}

void write_adapters(FILE *out, const std::vector<AdapterView> &list, const char *indent)
{
    fputc('[', out);
    write_items(out, list, true, [out, indent](const AdapterView &a) { write_adapter(out, a, indent); });
    fputc(']', out);
}

void write_controller(FILE *out, const ControllerView &v)
{
    const ShpcInfo &c = *v.record;
    fprintf(out, "    {");
    json_key(out, "bus_id");
    json_string(out, c.bus_id);
    fprintf(out, ", \"kind\": \"%s\",\n", c.magic == SHPC_MAGIC ? "shpc" : "pcie_port");
    fprintf(out, "     \"magic\": %" PRIu32 ", \"domain\": %u, \"bus\": %u, \"device\": %u, "
                 "\"function\": %u, \"revision\": %u, \"header_type\": %u,\n",
            c.magic.get(), c.domain.get(), c.bus, c.device, c.function, c.revision, c.header_type);
    fprintf(out, "     \"class_code\": %u, \"secondary_bus\": %u, \"cap_offset\": %u, "
                 "\"first_device\": %u, \"slot_count\": %u,\n",
            c.class_code.get(), c.secondary_bus, c.cap_offset, c.first_device, c.slot_count);
    fprintf(out, "     \"slots_available_1\": %" PRIu32 ", \"slots_available_2\": %" PRIu32
                 ", \"slot_config\": %" PRIu32 ", \"sec_bus_config\": %" PRIu32
                 ", \"hba_count\": %" PRIu32 ",\n",
            c.slots_available_1.get(), c.slots_available_2.get(), c.slot_config.get(),
            c.sec_bus_config.get(), c.hba_count.get());
    fprintf(out, "     \"bus_speed\": ");
    if (c.magic == SHPC_MAGIC)
        fprintf(out, "\"%s\"", v.speed ? v.speed->key : "unknown");
    else
        fprintf(out, "null");
    fprintf(out, ", \"slots\": [");
    write_items(out, v.slots, false, [out](const SlotView &s) {
        fprintf(out, "{\"device\": ");
        write_number_or_null(out, s.device);
        fprintf(out, ", \"physical_slot\": ");
        write_number_or_null(out, s.physical);
        fprintf(out, ", \"sysfs_slots\": ");
        write_string_array(out, s.sysfs_names);
        fputc('}', out);
    });
    fprintf(out, "],\n     \"adapters\": ");
    write_adapters(out, v.adapters, "      ");
    fputc('}', out);
}

void write_problem(FILE *out, const ProblemView &v)
{
    static const char *const stages[] = {"alterpm", "bus", "busid", "placement", "adapter",
                                         "driver"};
    const PlanProblem &p = *v.problem;
    fprintf(out, "    {\"stage\": \"%s\", \"site\": ", stages[static_cast<int>(p.stage)]);
    if (p.site)
        fprintf(out, "\"%x\"", p.site);
    else
        fprintf(out, "null");
    fprintf(out, ", \"file\": ");
    write_string_or_null(out, v.file);
    if (v.has_line) {
        fprintf(out, ", \"line\": %" PRIu32 ", \"entry\": ", v.line.line);
        json_string(out, v.line.entry);
    } else {
        fprintf(out, ", \"line\": null, \"entry\": null");
    }
    const bool named = !v.bus_id.empty();
    fprintf(out, ", \"label\": ");
    write_string_or_null(out, named ? v.line.label.c_str() : nullptr);
    fprintf(out, ", \"bus_id\": ");
    write_string_or_null(out, named ? v.bus_id.c_str() : nullptr);
    fprintf(out, ",\n     \"explanation\": ");
    json_string(out, v.explanation->wrong);
    fprintf(out, ", \"action\": ");
    json_string(out, v.explanation->action);
    fprintf(out, ",\n     \"detail\": ");
    write_string_or_null(out, v.detail.empty() ? nullptr : v.detail.c_str());
    fprintf(out, ", \"nearby\": ");
    if (v.looked_nearby)
        write_string_array(out, v.nearby);
    else
        fprintf(out, "null");
    fprintf(out, ",\n     \"messages\": ");
    write_string_array(out, p.messages);
    fputc('}', out);
}

} // namespace

bool write_json_report(FILE *out, const ShowModel &m)
{
    fprintf(out, "{\n  \"would_register\": %s,\n", m.would_succeed() ? "true" : "false");
    fprintf(out, "  \"summary\": ");
    json_string(out, summary_line(m));
    fprintf(out, ",\n  \"table\": ");
    if (m.built)
        fprintf(out, "{\"count\": %" PRIu32 ", \"total_size\": %" PRIu32
                     ", \"max_hba_count\": %" PRIu32 "}",
                m.plan->table->count.get(), m.plan->table->total_size.get(),
                m.plan->table->max_hba_count.get());
    else
        fprintf(out, "null");
    fprintf(out, ",\n  \"controllers\": [");
    write_items(out, m.controllers, true, [out](const ControllerView &c) { write_controller(out, c); });
    fprintf(out, "],\n  \"outside\": ");
    write_adapters(out, m.outside, "    ");
    fprintf(out, ",\n  \"duplicates\": [");
    write_items(out, m.duplicates, true, [out](const DuplicateView &d) {
        fprintf(out, "    {\"bus_id\": ");
        json_string(out, d.bus_id);
        fprintf(out, ", ");
        write_line(out, d.line);
        fprintf(out, ", \"same_as_line\": ");
        if (d.same_as_line)
            fprintf(out, "%" PRIu32 "}", d.same_as_line);
        else
            fprintf(out, "null}");
    });
    fprintf(out, "],\n  \"problems\": [");
    write_items(out, m.problems, true, [out](const ProblemView &p) { write_problem(out, p); });
    fprintf(out, "]\n}\n");
    return fflush(out) == 0 && !ferror(out);
}
