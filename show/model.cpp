// The report's model. Everything in it comes from the preview's records and
// problems; the only decisions taken here are how to name things.
#include "show/model.h"

#include <unordered_map>

#include "cli/report.h"
#include "hotplug/alterpm.h"
#include "hotplug/busid_tokens.h"
#include "hotplug/driver_memory.h"
#include "hotplug/pci_regs.h"
#include "hotplug/shpc.h"
#include "table/busid.h"
#include "table/hba_addr_conf.h"

namespace {

struct Address {
    uint16_t domain = 0;
    uint8_t bus = 0, device = 0, function = 0;
    bool operator==(const Address &) const = default;
};

const PciFunction *find_function(const PciSnap *snap, const Address &a)
{
    if (!snap)
        return nullptr;
    for (const PciFunction &f : snap->functions)
        if (f.domain == a.domain && f.bus == a.bus && f.device == a.device &&
            f.function == a.function)
            return &f;
    return nullptr;
}

// The label word of every busID word of the table.
std::unordered_map<const LineToken *, const LineToken *> label_words()
{
    std::unordered_map<const LineToken *, const LineToken *> labels;
    const LineToken *label = nullptr;
    for (const LineToken &t : hba_addr_table) {
        if (t.is_word() && t.field == 1)
            label = &t;
        else if (is_busid_token(t))
            labels[&t] = label;
    }
    return labels;
}

TableLine table_line(const LineToken &busid,
                     const std::unordered_map<const LineToken *, const LineToken *> &labels)
{
    TableLine l;
    l.line = busid.line;
    auto it = labels.find(&busid);
    if (it != labels.end() && it->second) {
        l.entry = it->second->text;
        l.label = l.entry.substr(0, l.entry.find(','));
    }
    return l;
}

// A busID that parsed once in the build parses again; the messages of a
// failure would be those the build already gathered, so they are dropped.
bool parse_quietly(const LineToken &t, Address &a)
{
    CapturedMessages dropped;
    ReportCapture capture(dropped);
    return parse_busid(t.text.c_str(), t.size, &a.domain, &a.bus, &a.device, &a.function) == 0;
}

ControllerView controller_view(const ShpcInfo &record, const PciSnap *snap)
{
    ControllerView v;
    v.record = &record;
    if (record.magic == SHPC_MAGIC) {
        // The slot range at the current speed, as the placement itself works
        // it out, on a copy so the record stays as it is sent.
        ShpcInfo probe = record;
        CapturedMessages dropped;
        ReportCapture capture(dropped);
        if (shpc_covers_device(probe, 0, 0, 0) != -1) {
            v.speed_known = true;
            v.first_device = probe.first_device;
            v.slot_count = probe.slot_count;
            v.slots = shpc_slots(record, v.first_device, v.slot_count);
        }
    } else {
        Address a{record.domain, record.bus, record.device, record.function};
        v.slots = port_slot(record, find_function(snap, a));
    }
    return v;
}

AdapterView adapter_view(const HbaInfo &record, const PreviewAdapter &a, const PciSnap *snap,
                         const std::unordered_map<const LineToken *, const LineToken *> &labels)
{
    AdapterView v;
    v.record = &record;
    v.line = table_line(*a.busid, labels);
    v.alterpm_entry = a.alterpm_entry;
    Address addr{record.domain, record.bus, record.device, record.function};
    if (const PciFunction *f = find_function(snap, addr)) {
        v.ids_known = true;
        v.vendor_id = f->vendor_id;
        v.device_id = f->device_id;
    }
    return v;
}

} // namespace

const char *shpc_speed_name(uint32_t sec_bus_config)
{
    switch (sec_bus_config & SHPC_SEC_BUS_SPEED_MASK) {
    case SHPC_SPEED_33_PCI: return "33 MHz PCI";
    case SHPC_SPEED_66_PCI: return "66 MHz PCI";
    case SHPC_SPEED_66_PCIX: return "66 MHz PCI-X";
    case SHPC_SPEED_100_PCIX: return "100 MHz PCI-X";
    case SHPC_SPEED_133_PCIX: return "133 MHz PCI-X";
    default: return nullptr;
    }
}

const char *shpc_speed_key(uint32_t sec_bus_config)
{
    switch (sec_bus_config & SHPC_SEC_BUS_SPEED_MASK) {
    case SHPC_SPEED_33_PCI: return "pci33";
    case SHPC_SPEED_66_PCI: return "pci66";
    case SHPC_SPEED_66_PCIX: return "pcix66";
    case SHPC_SPEED_100_PCIX: return "pcix100";
    case SHPC_SPEED_133_PCIX: return "pcix133";
    default: return "unknown";
    }
}

ShowModel make_show_model(const RegistrationPreview &preview, const char *conf_file)
{
    ShowModel m;
    m.preview = &preview;
    m.built = preview.table && preview.outside;
    const PciSnap *snap = preview.snap.get();
    auto labels = label_words();

    if (m.built) {
        std::vector<SysfsSlot> sysfs = read_sysfs_slots();
        ShpcInfo *records = shpc_info_records(preview.table);
        for (uint32_t i = 0; i < preview.table->count; i++) {
            m.controllers.push_back(controller_view(records[i], snap));
            match_sysfs_slots(records[i], m.controllers.back().slots, sysfs);
        }
        for (const PreviewAdapter &a : preview.adapters) {
            HbaInfoList *list = a.controller < 0
                                    ? preview.outside
                                    : static_cast<HbaInfoList *>(
                                          driver_pointer(records[a.controller].hba_list));
            AdapterView v = adapter_view(hba_info_records(list)[a.index], a, snap, labels);
            if (a.controller < 0)
                m.outside.push_back(v);
            else
                m.controllers[static_cast<size_t>(a.controller)].adapters.push_back(v);
        }
    }

    // Lines that repeat a function get no record: each is shown with the
    // line whose record stands for it.
    std::unordered_map<uint32_t, AdapterView *> by_line;
    for (ControllerView &c : m.controllers)
        for (AdapterView &v : c.adapters)
            by_line[v.line.line] = &v;
    for (AdapterView &v : m.outside)
        by_line[v.line.line] = &v;
    for (const LineToken &t : hba_addr_table) {
        if (!is_busid_token(t) || !is_exact_duplicate(t) || preview.refused.count(&t))
            continue;
        DuplicateView d{table_line(t, labels), t.text, 0};
        Address a;
        if (parse_quietly(t, a)) {
            for (const LineToken &e : hba_addr_table) {
                if (&e == &t)
                    break;
                Address b;
                if (is_busid_token(e) && !is_exact_duplicate(e) && parse_quietly(e, b) &&
                    a == b) {
                    d.same_as_line = e.line;
                    break;
                }
            }
        }
        auto holder = by_line.find(d.same_as_line);
        if (d.same_as_line && holder != by_line.end())
            holder->second->duplicates.push_back(d.line);
        m.duplicates.push_back(d);
    }

    for (const PreviewProblem &p : preview.problems) {
        ProblemView v;
        v.problem = &p;
        switch (p.stage) {
        case PreviewStage::ALTERPM: v.file = ALTERPM_CONF; break;
        case PreviewStage::BUS: v.file = nullptr; break;
        default: v.file = conf_file; break;
        }
        if (p.token && p.stage == PreviewStage::ALTERPM) {
            v.has_line = true;
            v.line.line = p.token->line;
            v.line.entry = p.token->text;
        } else if (p.token) {
            v.has_line = true;
            v.line = table_line(*p.token, labels);
            v.bus_id = p.token->text;
        }
        m.problems.push_back(v);
    }
    return m;
}
