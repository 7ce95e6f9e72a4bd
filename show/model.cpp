// The report's model. Everything in it comes from the plan's records,
// outcomes and problems; the only decisions taken here are how to name
// things.
#include "show/model.h"

#include <algorithm>
#include <cstdio>

#include "hotplug/driver.h"
#include "show/driver_node.h"
#include "table/label_edit.h"

namespace {

// The sites of the adapter problems that come with a detail.
constexpr unsigned SITE_NO_FUNCTION = 0xccb;   // nothing at the busID
constexpr unsigned SITE_BUS_ID_TOO_LONG = 0xcf8;

TableLine table_line(const BusIdWord &w)
{
    TableLine l;
    l.line = w.token->line;
    if (w.entry) {
        l.entry = w.entry->text;
        l.label = entry_label(*w.entry);
    }
    return l;
}

ControllerView controller_view(const RegistrationPlan &plan, uint32_t i)
{
    const ShpcInfo &record = shpc_info_records(plan.table)[i];
    ControllerSlots slots = plan.slots(i);
    ControllerView v;
    v.record = &record;
    v.speed = slots.speed;
    v.first_device = slots.first_device;
    v.slot_count = slots.slot_count;
    if (slots.whole_bus)
        v.slots = port_slot(record, plan.function(record));
    else if (slots.known)
        v.slots = shpc_slots(record, slots.first_device, slots.slot_count);
    return v;
}

AdapterView adapter_view(const RegistrationPlan &plan, const BusIdWord &w)
{
    AdapterView v;
    v.record = &plan.record(w);
    v.line = table_line(w);
    v.alterpm_entry = w.alterpm_entry;
    if (w.found) {
        v.ids_known = true;
        v.vendor_id = w.found->vendor_id;
        v.device_id = w.found->device_id;
    }
    return v;
}

std::string address_text(uint16_t domain, uint8_t bus, uint8_t device, uint8_t function)
{
    char text[20];
    snprintf(text, sizeof text, "%04x:%02x:%02x.%x", domain, bus, device, function);
    return text;
}

// Where to look for a card that is not at its busID: the other functions of
// the same device, else those on the same bus, in address order. The
// detail says which, or that nothing answers on the bus.
void find_nearby(const PciSnap &snap, const BusIdWord &w, ProblemView &v)
{
    v.looked_nearby = true;
    std::vector<const PciFunction *> device, bus;
    for (const PciFunction &f : snap.functions) {
        if (f.domain != w.domain || f.bus != w.bus)
            continue;
        bus.push_back(&f);
        if (f.device == w.device)
            device.push_back(&f);
    }
    const std::vector<const PciFunction *> &near = device.empty() ? bus : device;
    for (const PciFunction *f : near)
        v.nearby.push_back(address_text(f->domain, f->bus, f->device, f->function));
    std::sort(v.nearby.begin(), v.nearby.end());
    char where[40];
    if (!device.empty())
        snprintf(where, sizeof where, "device %04x:%02x:%02x", w.domain, w.bus, w.device);
    else
        snprintf(where, sizeof where, "bus %04x:%02x", w.domain, w.bus);
    if (v.nearby.empty()) {
        v.detail = std::string("Nothing answers on ") + where + ".";
        return;
    }
    v.detail = std::string("Present on ") + where + ":";
    for (size_t i = 0; i < v.nearby.size(); i++)
        v.detail += (i ? ", " : " ") + v.nearby[i];
    v.detail += ".";
}

// What is known of one problem beyond its kind.
void add_detail(const RegistrationPlan &plan, ProblemView &v)
{
    const PlanProblem &p = *v.problem;
    if (p.stage != PlanStage::ADAPTER || p.busid == BusIdWord::NONE)
        return;
    const BusIdWord &w = plan.busids[p.busid];
    if (p.site == SITE_NO_FUNCTION && plan.snap)
        find_nearby(*plan.snap, w, v);
    else if (p.site == SITE_BUS_ID_TOO_LONG && w.parsed)
        v.detail = "Written short, it reads " +
                   address_text(w.domain, w.bus, w.device, w.function) + ".";
}

} // namespace

ShowModel make_show_model(const RegistrationPlan &plan, const char *conf_file)
{
    ShowModel m;
    m.plan = &plan;
    m.built = plan.built();
    if (m.built) {
        std::vector<SysfsSlot> sysfs = read_sysfs_slots();
        for (uint32_t i = 0; i < plan.table->count; i++) {
            m.controllers.push_back(controller_view(plan, i));
            match_sysfs_slots(*m.controllers.back().record, m.controllers.back().slots, sysfs);
        }
    }
    auto list_of = [&m](const BusIdWord &w) -> std::vector<AdapterView> & {
        return w.controller < 0 ? m.outside
                                : m.controllers[static_cast<size_t>(w.controller)].adapters;
    };
    // Where each placed busID's view is in its list.
    std::vector<size_t> position(plan.busids.size());
    for (size_t i = 0; m.built && i < plan.busids.size(); i++) {
        const BusIdWord &w = plan.busids[i];
        if (w.outcome != BusIdWord::Outcome::PLACED)
            continue;
        position[i] = list_of(w).size();
        list_of(w).push_back(adapter_view(plan, w));
    }

    // Lines that repeat a function get no record: each is shown with the
    // line whose record stands for it.
    for (const BusIdWord &w : plan.busids) {
        if (w.outcome != BusIdWord::Outcome::DUPLICATE)
            continue;
        const BusIdWord &first = plan.busids[w.same_as];
        DuplicateView d{table_line(w), w.token->text, first.token->line};
        if (m.built && first.outcome == BusIdWord::Outcome::PLACED)
            list_of(first)[position[w.same_as]].duplicates.push_back(d.line);
        m.duplicates.push_back(d);
    }

    for (const PlanProblem &p : plan.problems) {
        ProblemView v;
        v.problem = &p;
        switch (p.stage) {
        case PlanStage::ALTERPM: v.file = ALTERPM_CONF; break;
        case PlanStage::BUS: v.file = nullptr; break;
        default: v.file = conf_file; break;
        }
        if (p.token && p.stage == PlanStage::ALTERPM) {
            v.has_line = true;
            v.line.line = p.token->line;
            v.line.entry = p.token->text;
        } else if (p.busid != BusIdWord::NONE) {
            v.has_line = true;
            v.line = table_line(plan.busids[p.busid]);
            v.bus_id = p.token->text;
        }
        v.explanation = &explain(p.stage, p.site);
        add_detail(plan, v);
        m.problems.push_back(v);
    }
    // slotag -r opens the driver's node once everything is built.
    const char *kind = nullptr;
    m.driver_node = check_driver_node(&kind);
    if (m.driver_node) {
        ProblemView v;
        v.problem = m.driver_node.get();
        v.file = SLOTAG_DEVICE;
        v.explanation = &explain(PlanStage::DRIVER, m.driver_node->site);
        if (kind)
            v.detail = std::string("It is ") + kind + ".";
        m.problems.push_back(v);
    }
    return m;
}
