// The text report: one block per controller, its slots and its adapters,
// then the adapters outside, the lines without a record, the problems and
// the summary.
#include <cinttypes>
#include <string>

#include "hotplug/pci_regs.h"
#include "show/report_writers.h"

namespace {

const char *plural(uint32_t n, const char *one, const char *many) { return n == 1 ? one : many; }

void write_line_ref(FILE *out, const TableLine &l)
{
    fprintf(out, "label %s (line %" PRIu32 ": %s)", l.label.c_str(), l.line, l.entry.c_str());
}

void write_adapter(FILE *out, const AdapterView &a, const char *indent)
{
    const HbaInfo &r = *a.record;
    fprintf(out, "%sadapter %s, ", indent, r.bus_id);
    write_line_ref(out, a.line);
    fputc('\n', out);
    for (const TableLine &d : a.duplicates) {
        fprintf(out, "%s  also ", indent);
        write_line_ref(out, d);
        fputc('\n', out);
    }
    fprintf(out, "%s  ", indent);
    if (a.ids_known)
        fprintf(out, "%04x:%04x ", a.vendor_id, a.device_id);
    fprintf(out, "revision %02x, PM capability at 0x%02x, ", r.revision, r.pm_cap);
    if (a.alterpm_entry)
        fprintf(out, "alternative PM (%s line %" PRIu32 ": %s)\n", ALTERPM_CONF,
                a.alterpm_entry->line, a.alterpm_entry->text.c_str());
    else
        fprintf(out, "no alternative PM\n");
}

void write_slot(FILE *out, const ShpcInfo &c, const SlotView &s)
{
    if (s.device >= 0)
        fprintf(out, "     slot %02x:%02x:", c.secondary_bus, static_cast<unsigned>(s.device));
    else
        fprintf(out, "     slot on bus %02x:", c.secondary_bus);
    if (s.physical >= 0)
        fprintf(out, " physical slot %ld", s.physical);
    else
        fprintf(out, " no physical slot number");
    for (const std::string &name : s.sysfs_names)
        fprintf(out, ", sysfs slot \"%s\"", name.c_str());
    fputc('\n', out);
}

void write_controller(FILE *out, uint32_t n, const ControllerView &v)
{
    const ShpcInfo &c = *v.record;
    fprintf(out, "  %" PRIu32 ". %s ", n, c.bus_id);
    if (c.magic == SHPC_MAGIC) {
        if (!v.speed) {
            fprintf(out, "SHPC bridge: unknown bus speed (code %" PRIu32 "), bus %02x\n",
                    c.sec_bus_config & SHPC_SEC_BUS_SPEED_MASK, c.secondary_bus);
        } else {
            fprintf(out, "SHPC bridge: %s, %u %s", v.speed->name, v.slot_count,
                    plural(v.slot_count, "slot", "slots"));
            if (v.slot_count > 0)
                fprintf(out, ", devices %02x to %02x", v.first_device,
                        v.first_device + v.slot_count - 1);
            fprintf(out, " on bus %02x, physical slots numbered %s\n", c.secondary_bus,
                    (c.slot_config & SHPC_SLOT_CONFIG_PSN_UP) ? "up" : "down");
        }
    } else {
        fprintf(out, "PCI Express downstream port: power-controlled slot, bus %02x\n",
                c.secondary_bus);
    }
    for (const SlotView &s : v.slots)
        write_slot(out, c, s);
    for (const AdapterView &a : v.adapters)
        write_adapter(out, a, "     ");
    if (v.adapters.empty())
        fprintf(out, "     no labelled adapter\n");
}

// A paragraph of a problem, in lines of at most 79 columns (a longer word
// stands alone) indented under its number.
void write_wrapped(FILE *out, const std::string &text)
{
    constexpr size_t INDENT = 5, WIDTH = 79;
    size_t column = 0;
    size_t pos = 0;
    while (pos < text.size()) {
        size_t end = text.find(' ', pos);
        if (end == std::string::npos)
            end = text.size();
        size_t len = end - pos;
        if (column > 0 && column + 1 + len > WIDTH) {
            fputc('\n', out);
            column = 0;
        }
        if (column == 0) {
            fprintf(out, "%*s", static_cast<int>(INDENT), "");
            column = INDENT;
        } else {
            fputc(' ', out);
            column++;
        }
        fwrite(text.data() + pos, 1, len, out);
        column += len;
        pos = end + 1;
    }
    fputc('\n', out);
}

void write_problem(FILE *out, uint32_t n, const ProblemView &v)
{
    const PlanProblem &p = *v.problem;
    fprintf(out, "  %" PRIu32 ". ", n);
    if (!v.file)
        fprintf(out, "the PCI bus");
    else if (!v.has_line)
        fprintf(out, "%s", v.file);
    else if (v.bus_id.empty())
        fprintf(out, "%s line %" PRIu32 ", entry %s", v.file, v.line.line, v.line.entry.c_str());
    else
        fprintf(out, "%s line %" PRIu32 ", label %s, busID %s", v.file, v.line.line,
                v.line.label.c_str(), v.bus_id.c_str());
    if (p.site)
        fprintf(out, ": site %x", p.site);
    fputc('\n', out);
    write_wrapped(out, v.explanation->wrong);
    if (!v.detail.empty())
        write_wrapped(out, v.detail);
    write_wrapped(out, std::string("To do: ") + v.explanation->action);
    if (!p.messages.empty())
        fprintf(out, "     slotag -r would say:\n");
    for (const std::string &m : p.messages)
        fprintf(out, "       %s\n", m.c_str());
}

} // namespace

std::string summary_line(const ShowModel &m)
{
    char text[256];
    if (m.would_succeed()) {
        uint32_t under = 0;
        for (const ControllerView &c : m.controllers)
            under += static_cast<uint32_t>(c.adapters.size());
        uint32_t controllers = static_cast<uint32_t>(m.controllers.size());
        uint32_t outside = static_cast<uint32_t>(m.outside.size());
        snprintf(text, sizeof text,
                 "slotag -r would send %" PRIu32 " %s with %" PRIu32 " %s under them and %" PRIu32
                 " %s outside.",
                 controllers, plural(controllers, "controller", "controllers"), under,
                 plural(under, "adapter", "adapters"), outside,
                 plural(outside, "adapter", "adapters"));
    } else {
        uint32_t n = static_cast<uint32_t>(m.problems.size());
        unsigned site = m.problems.empty() ? 0 : m.problems.front().problem->site;
        char with[32] = "";
        if (site)
            snprintf(with, sizeof with, " with site %x", site);
        snprintf(text, sizeof text, "slotag -r would fail%s; %" PRIu32 " %s.", with, n,
                 plural(n, "problem", "problems"));
    }
    return text;
}

bool write_text_report(FILE *out, const ShowModel &m)
{
    if (m.built) {
        fprintf(out, "Hot-plug controllers, in the order slotag -r sends them:\n");
        uint32_t n = 0;
        for (const ControllerView &c : m.controllers)
            write_controller(out, ++n, c);
        if (m.controllers.empty())
            fprintf(out, "  none\n");
        fprintf(out, "\nLabelled adapters outside any controller:\n");
        for (const AdapterView &a : m.outside)
            write_adapter(out, a, "  ");
        if (m.outside.empty())
            fprintf(out, "  none\n");
    }
    if (!m.duplicates.empty()) {
        fprintf(out, "\nLines that get no record (the same function as an earlier line):\n");
        for (const DuplicateView &d : m.duplicates) {
            fprintf(out, "  %s, ", d.bus_id.c_str());
            write_line_ref(out, d.line);
            if (d.same_as_line)
                fprintf(out, ", as line %" PRIu32, d.same_as_line);
            fputc('\n', out);
        }
    }
    if (!m.problems.empty()) {
        fprintf(out, "\nProblems that would make slotag -r fail (it stops at the first):\n");
        uint32_t n = 0;
        for (const ProblemView &p : m.problems)
            write_problem(out, ++n, p);
    }
    fprintf(out, "\n%s\n", summary_line(m).c_str());
    return fflush(out) == 0 && !ferror(out);
}
