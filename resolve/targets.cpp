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

// Runs resolve (which appends table lines) and moves the lines it added
// into out; the resolver's result.
template <class Resolve>
int collect_added(std::vector<TargetAdapter> &out, Resolve resolve)
{
    const size_t before = hba_addr_table.size();
    int r = resolve();
    auto first = std::next(hba_addr_table.begin(), static_cast<long>(before));
    const LineToken *entry = nullptr;
    for (auto it = first; it != hba_addr_table.end(); ++it) {
        if (it->field == 1 && it->is_word())
            entry = &*it;
        std::string bus_id;
        if (it->field == 2 && it->is_word() && entry &&
            canonical_bus_id(it->text.c_str(), bus_id))
            out.push_back({entry->text.c_str(), bus_id, 0});
    }
    hba_addr_table.erase(first, hba_addr_table.end());
    return r;
}

void add_label_lines(const char *label, std::vector<TargetAdapter> &out)
{
    const LineToken *entry = nullptr;
    for (const LineToken &t : hba_addr_table) {
        if (t.field == 1 && t.is_word())
            entry = entry_label(t) == label ? &t : nullptr;
        std::string bus_id;
        if (t.field == 2 && t.is_word() && entry && canonical_bus_id(t.text.c_str(), bus_id))
            out.push_back({entry->text.c_str(), bus_id, t.line});
    }
}

} // namespace

bool canonical_bus_id(const char *text, std::string &out)
{
    CapturedMessages quiet;
    ReportCapture capture(quiet);
    uint16_t domain;
    uint8_t bus, device, function;
    if (parse_busid(text, BUS_ID_LIMIT, &domain, &bus, &device, &function) == -1)
        return false;
    char buf[16];
    snprintf(buf, sizeof buf, "%04x:%02x:%02x.%x", domain, bus, device, function);
    out = buf;
    return true;
}

int prepare_targets() { return prepare_device_resolution(); }

Target resolve_target(const char *operand)
{
    Target t;
    t.operand = operand;
    std::string bus_id;
    if (strnlen(operand, BUS_ID_LIMIT) < BUS_ID_LIMIT && canonical_bus_id(operand, bus_id)) {
        t.kind = TargetKind::BUS_ID;
        t.adapters.push_back({"", bus_id, 0});
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
