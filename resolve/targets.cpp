// The resolvers append lines to the in-memory table, as the add mode wants
// them; here the lines are copied out and taken off again, so the table
// stays as loaded and a later look-up sees only what the file says.
#include "resolve/targets.h"

#include <cstdio>
#include <cstring>
#include <iterator>

#include "cli/core/report.h"
#include "resolve/add.h"
#include "resolve/vds.h"
#include "table/busid.h"
#include "table/hba_addr_conf.h"
#include "table/label_edit.h"

namespace {

// A busID as long as the table accepts one, NUL included.
constexpr uint32_t BUS_ID_LIMIT = 32;

// The entries of the table from `from` on, each a line with a first word and
// a busID that parses, handed to on_entry(first word, adapter with the
// line's number).
template <class OnEntry>
void each_entry(TokenList::iterator from, OnEntry on_entry)
{
    const LineToken *entry = nullptr;
    for (auto it = from; it != hba_addr_table.end(); ++it) {
        if (it->field == 1 && it->is_word())
            entry = &*it;
        TargetAdapter a;
        if (it->field == 2 && it->is_word() && entry && parse_adapter(it->text.c_str(), a)) {
            a.entry = entry->text.c_str();
            a.label = entry_label(*entry);
            a.line = it->line;
            on_entry(*entry, std::move(a));
        }
    }
}

// Runs resolve (which appends table lines) and moves the lines it added
// into out; the resolver's result.
template <class Resolve>
int collect_added(std::vector<TargetAdapter> &out, Resolve resolve)
{
    const size_t before = hba_addr_table.size();
    int r = resolve();
    auto first = std::next(hba_addr_table.begin(), static_cast<long>(before));
    each_entry(first, [&out](const LineToken &, TargetAdapter &&a) {
        a.line = 0;  // not a line of the file
        out.push_back(std::move(a));
    });
    hba_addr_table.erase(first, hba_addr_table.end());
    return r;
}

void add_label_lines(const char *label, std::vector<TargetAdapter> &out)
{
    each_entry(hba_addr_table.begin(), [&](const LineToken &entry, TargetAdapter &&a) {
        if (entry_label(entry) == label)
            out.push_back(std::move(a));
    });
}

} // namespace

bool parse_adapter(const char *text, TargetAdapter &out)
{
    CapturedMessages quiet;
    ReportCapture capture(quiet);
    if (parse_busid(text, BUS_ID_LIMIT, &out.domain, &out.bus, &out.device, &out.function) == -1)
        return false;
    char buf[16];
    snprintf(buf, sizeof buf, "%04x:%02x:%02x.%x", out.domain, out.bus, out.device, out.function);
    out.bus_id = buf;
    return true;
}

std::vector<TargetAdapter> table_lines_of(const std::string &bus_id)
{
    std::vector<TargetAdapter> out;
    each_entry(hba_addr_table.begin(), [&](const LineToken &, TargetAdapter &&a) {
        if (a.bus_id == bus_id)
            out.push_back(std::move(a));
    });
    return out;
}

int prepare_targets() { return prepare_device_resolution(); }

Target resolve_target(const char *operand)
{
    Target t;
    t.operand = operand;
    TargetAdapter given;
    if (strnlen(operand, BUS_ID_LIMIT) < BUS_ID_LIMIT && parse_adapter(operand, given)) {
        t.kind = TargetKind::BUS_ID;
        t.adapters.push_back(std::move(given));
        t.resolved = true;
        return t;
    }
    add_label_lines(operand, t.adapters);
    if (!t.adapters.empty()) {
        t.kind = TargetKind::LABEL;
        t.resolved = true;
        return t;
    }
    int r;
    if (operand[0] == '/') {
        t.kind = TargetKind::DEVICE_PATH;
        r = collect_added(t.adapters, [operand] { return parse_hba_addr_conf_add_sub(operand); });
    } else {
        t.kind = TargetKind::CLASS;
        r = collect_added(t.adapters, [operand] { return get_pci_by_guess_vds_class(operand); });
    }
    // A resolver that failed part-way leaves the lines of the paths before
    // the failure: they are not the whole answer.
    t.resolved = r > 0 && !t.adapters.empty();
    if (!t.resolved)
        t.adapters.clear();
    if (r == 0)
        print_error("%s leads to no adapter.\n", operand);
    return t;
}

int device_adapters(const char *device_path, std::vector<TargetAdapter> &out)
{
    CapturedMessages quiet;
    ReportCapture capture(quiet);
    return collect_added(out, [device_path] { return parse_hba_addr_conf_add_sub(device_path); });
}
