// The registration plan. Every labelled busID that is not an exact duplicate
// gets one HbaInfo: in the list of the first controller whose slots hold it,
// or in the outside list. A counting pass sizes the lists, a filling pass
// fills them; both see the same busIDs and decide alike. While collecting,
// the counting pass already builds each adapter's record, so that an
// adapter with a problem gets no place in either pass; the filling pass
// then copies the records built instead of reading the adapters again.
#include "hotplug/plan.h"

#include <algorithm>
#include <new>
#include <optional>

#include "cli/core/report.h"
#include "hotplug/alterpm.h"
#include "hotplug/driver_memory.h"
#include "hotplug/hba_info.h"
#include "hotplug/pci_report.h"
#include "hotplug/shpc.h"
#include "hotplug/shpc_owner.h"

namespace {

constexpr int SITE_FILL_CONTROLLER = 3419;
constexpr int SITE_FILL_OUTSIDE = 3446;
constexpr int SITE_OUTSIDE_LIST = 3460;
constexpr int SITE_CONTROLLER_LIST = 3470;
constexpr unsigned SITE_NO_SNAP = 3516;
constexpr unsigned SITE_SCAN = 3525;
constexpr int SITE_COUNTING = 3631;
constexpr int SITE_FILLING = 3638;
constexpr const char *BUILD_FN = "build_shpc_hba_info";
constexpr const char *PASS_FN = "build_shpc_hba_info_sub";

using Outcome = BusIdWord::Outcome;

HbaInfoList *controller_list(const ShpcInfo &shpc)
{
    return static_cast<HbaInfoList *>(driver_pointer(shpc.hba_list));
}

class Planner {
public:
    Planner(PlanMode mode, RegistrationPlan &plan)
        : collecting_(mode == PlanMode::COLLECT_ALL), plan_(plan)
    {
        if (collecting_)
            capture_.emplace(messages_);
    }

    int run(TokenList &table)
    {
        if (!read_alterpm())
            return -1;
        if (build(table) == 0)
            return 0;
        refuse(PlanStage::BUS, nullptr);
        return -1;
    }

    void sort_problems();

private:
    // A problem met. While collecting it is kept, with the messages said
    // since the last one, and planning goes on without what it concerns
    // (true); otherwise its messages are out already and planning stops.
    bool refuse(PlanStage stage, const LineToken *token, size_t busid = BusIdWord::NONE)
    {
        if (!collecting_)
            return false;
        plan_.problems.push_back(
            {stage, messages_.first_site, token, busid, std::move(messages_.lines)});
        messages_ = CapturedMessages{};
        if (busid != BusIdWord::NONE)
            plan_.busids[busid].problem = plan_.problems.size() - 1;
        return true;
    }

    bool read_alterpm()
    {
        auto bad_entry = [this](const LineToken &e) { return refuse(PlanStage::ALTERPM, &e); };
        return parse_d0_conf(bad_entry) == 0 || refuse(PlanStage::ALTERPM, nullptr);
    }

    bool take_snapshot()
    {
        uint32_t code = 0;
        plan_.snap = pci_snap_init(&code);
        if (!plan_.snap) {
            report_no_resources(sizeof(PciSnap), SITE_NO_SNAP);
            log_err("pci snap init false(%x)\n", code);
            return false;
        }
        if (pci_scan(*plan_.snap, &code))
            return true;
        report_fatal(SITE_SCAN);
        // The earliest-listed function kept: where the scan got to.
        if (!plan_.snap->functions.empty())
            log_pci_device(plan_.snap->functions.back(), code);
        else
            log_err("pci scan false(%x)\n", code);
        return false;
    }

    int build(TokenList &table)
    {
        if (!take_snapshot())
            return -1;
        int n = search_shpc(*plan_.snap);
        if (n == -1)
            return -1;
        ShpcInfoTable *controllers = alloc_shpc_info_table(static_cast<uint32_t>(n));
        if (!controllers)
            return -1;
        // A busID that does not parse is a problem of its own when collecting
        // and takes no part in the marks or the passes.
        DuplicateMarking marking;
        if (collecting_) {
            marking.on_refused = [this](const LineToken &t) {
                refuse(PlanStage::BUSID, &t, plan_.busids.size() - 1);
            };
        }
        if (mark_duplicate_busids(table, plan_.busids, marking) == -1)
            return -1;
        HbaInfoList *outside = count(controllers);
        if (!outside) {
            log_callee(BUILD_FN, SITE_COUNTING);
            return -1;
        }
        if (fill(controllers, outside) == -1) {
            log_callee(BUILD_FN, SITE_FILLING);
            return -1;
        }
        plan_.table = controllers;
        plan_.outside = outside;
        return 0;
    }

    // The counting pass: where each busID goes, and how many go where. The
    // outside list, with every controller's list allocated; null (reported)
    // on failure.
    HbaInfoList *count(ShpcInfoTable *table)
    {
        ShpcInfo *controllers = shpc_info_records(table);
        ShpcOwnerFinder owners(controllers, table->count);
        uint32_t outside = 0;
        for (size_t i = 0; i < plan_.busids.size(); i++) {
            BusIdWord &w = plan_.busids[i];
            if (!w.parsed)
                continue;
            ShpcInfo *owner = nullptr;
            if (owners.find(w.domain, w.bus, w.device, &owner) == -1) {
                if (!refuse(PlanStage::PLACEMENT, w.token, i))
                    return nullptr;
                continue;
            }
            w.controller = owner ? static_cast<int>(owner - controllers) : -1;
            if (w.same_as != BusIdWord::NONE) {
                w.outcome = Outcome::DUPLICATE;
                continue;
            }
            if (collecting_ && !build_ahead(i)) {
                refuse(PlanStage::ADAPTER, w.token, i);
                continue;
            }
            w.outcome = Outcome::PLACED;
            if (!owner) {
                outside++;
                continue;
            }
            owner->hba_count++;
            if (owner->hba_count > table->max_hba_count)
                table->max_hba_count = owner->hba_count;
        }
        return allocate_lists(table, outside);
    }

    // While collecting: the record of busID i, built now (kept for the
    // filling pass when there is room). false when the adapter has a problem.
    bool build_ahead(size_t i)
    {
        if (built_.empty()) {
            try {
                built_.resize(plan_.busids.size());
            } catch (const std::bad_alloc &) {
                HbaInfo scratch{};  // no room: the filling pass builds again
                return build_hba_info(*plan_.snap, plan_.busids[i], &scratch) == 0;
            }
        }
        return build_hba_info(*plan_.snap, plan_.busids[i], &built_[i]) == 0;
    }

    HbaInfoList *allocate_lists(ShpcInfoTable *table, uint32_t outside)
    {
        HbaInfoList *list = alloc_hba_info_list(outside, nullptr);
        if (!list) {
            log_callee(PASS_FN, SITE_OUTSIDE_LIST);
            return nullptr;
        }
        ShpcInfo *controllers = shpc_info_records(table);
        uint64_t total = shpc_info_table_size(table->count);
        for (uint32_t i = 0; i < table->count; i++) {
            uint32_t size = 0;
            HbaInfoList *own = alloc_hba_info_list(controllers[i].hba_count, &size);
            if (!own) {
                log_callee(PASS_FN, SITE_CONTROLLER_LIST);
                return nullptr;
            }
            controllers[i].hba_list = driver_address(own);
            controllers[i].hba_count = 0;  // counted again while filling
            total += size;
        }
        table->total_size = static_cast<uint32_t>(total);
        return list;
    }

    // The filling pass: each placed busID's record, in table order.
    int fill(ShpcInfoTable *table, HbaInfoList *outside)
    {
        ShpcInfo *controllers = shpc_info_records(table);
        uint32_t k = 0;  // next record of the outside list
        for (size_t i = 0; i < plan_.busids.size(); i++) {
            BusIdWord &w = plan_.busids[i];
            if (w.outcome != Outcome::PLACED)
                continue;
            ShpcInfo *owner = w.controller < 0 ? nullptr : &controllers[w.controller];
            w.index = owner ? owner->hba_count.get() : k;
            HbaInfo *record = &hba_info_records(owner ? controller_list(*owner) : outside)[w.index];
            if (!built_.empty()) {
                *record = built_[i];
            } else if (build_hba_info(*plan_.snap, w, record) == -1) {
                log_callee(PASS_FN, owner ? SITE_FILL_CONTROLLER : SITE_FILL_OUTSIDE);
                return -1;
            }
            if (owner)
                owner->hba_count++;
            else
                k++;
        }
        return 0;
    }

    bool collecting_;
    RegistrationPlan &plan_;
    CapturedMessages messages_;
    std::optional<ReportCapture> capture_;
    std::vector<HbaInfo> built_;  // while collecting: by busID, built ahead
};

// By stage, then in the order met; each busID keeps its problem.
void Planner::sort_problems()
{
    std::vector<PlanProblem> &problems = plan_.problems;
    std::stable_sort(problems.begin(), problems.end(),
                     [](const PlanProblem &a, const PlanProblem &b) { return a.stage < b.stage; });
    for (size_t i = 0; i < problems.size(); i++)
        if (problems[i].busid != BusIdWord::NONE)
            plan_.busids[problems[i].busid].problem = i;
}

} // namespace

const HbaInfo &RegistrationPlan::record(const BusIdWord &placed) const
{
    HbaInfoList *list = placed.controller < 0
                            ? outside
                            : controller_list(shpc_info_records(table)[placed.controller]);
    return hba_info_records(list)[placed.index];
}

ControllerSlots RegistrationPlan::slots(uint32_t i) const
{
    const ShpcInfo &c = shpc_info_records(table)[i];
    ControllerSlots s;
    if (c.magic == PCIE_PORT_MAGIC)
        s.whole_bus = true;
    else
        s.known = shpc_slot_range(c, &s.first_device, &s.slot_count);
    if (s.known && !s.whole_bus)
        s.speed = shpc_bus_speed(c.sec_bus_config);
    return s;
}

const PciFunction *RegistrationPlan::function(const ShpcInfo &c) const
{
    return snap ? pci_find_function(*snap, c.domain, c.bus, c.device, c.function) : nullptr;
}

int plan_registration(TokenList &table, PlanMode mode, RegistrationPlan &plan)
{
    Planner planner(mode, plan);
    int result = planner.run(table);
    planner.sort_problems();
    return result;
}
