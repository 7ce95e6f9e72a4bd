// The HBA information build. Every labelled busID that is not an exact
// duplicate gets one HbaInfo: in the list of the first controller whose
// slots hold it, or in the outside list. A counting pass sizes the lists, a
// filling pass fills them; both see the same tokens and decide alike.
#include "hotplug/hba_info.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "cli/report.h"
#include "hotplug/alterpm.h"
#include "hotplug/busid_tokens.h"
#include "hotplug/driver_memory.h"
#include "hotplug/pci_access.h"
#include "hotplug/pci_regs.h"
#include "hotplug/pci_report.h"
#include "hotplug/preview.h"
#include "hotplug/shpc.h"
#include "hotplug/shpc_owner.h"
#include "table/busid.h"
#include "table/hba_addr_conf.h"

namespace {

constexpr unsigned SITE_NO_LIST = 3157;
constexpr unsigned SITE_NOT_PRESENT = 3275;
constexpr unsigned SITE_REVISION = 3285;
constexpr unsigned SITE_NO_PM = 3298;
constexpr int SITE_ALTERPM_ENTRY = 3313;
constexpr unsigned SITE_BUS_ID_TOO_LONG = 3320;
constexpr int SITE_SUB_PARSE = 3387;
constexpr int SITE_SUB_FILL_CONTROLLER = 3419;
constexpr int SITE_SUB_FILL_OUTSIDE = 3446;
constexpr int SITE_SUB_OUTSIDE_LIST = 3460;
constexpr int SITE_SUB_CONTROLLER_LIST = 3470;
constexpr unsigned SITE_NO_SNAP = 3516;
constexpr unsigned SITE_SCAN = 3525;
constexpr unsigned SITE_NO_TABLE = 3549;
constexpr int SITE_COUNTING = 3631;
constexpr int SITE_FILLING = 3638;

enum BuildPass { PASS_COUNT = 0, PASS_FILL = 1 };

// The first function of the snapshot with this address, from the head.
const PciFunction *find_function(const PciSnap &snap, uint16_t domain, uint8_t bus,
                                 uint8_t device, uint8_t function)
{
    return pci_find_function(snap, domain, bus, device, function);
}

// How a build runs: for the register step (stop at the first problem), or
// for a preview (every problem gathered into it, no record for the busIDs
// concerned).
struct BuildMode {
    RegistrationPreview *preview = nullptr;
};

// 1 when an alterpm.conf entry names this adapter (*matched set to it when
// given), 0 when none does, -1 (reported) when an entry does not parse. A
// preview has checked every entry already: the bad ones take no part.
int alternative_pm_mark(const PciFunction &f, uint8_t revision, const BuildMode &mode,
                        const LineToken **matched)
{
    for (LineToken &entry : alterpm_list) {
        if (mode.preview && !(entry.flags & TOKEN_PARSED))
            continue;
        uint16_t vendor_id, device_id;
        uint8_t revision_id, any_revision;
        if (parse_d0_entry(entry, &vendor_id, &device_id, &revision_id, &any_revision) == -1) {
            log_callee("build_hba_info", SITE_ALTERPM_ENTRY);
            return -1;
        }
        if (vendor_id == f.vendor_id && device_id == f.device_id &&
            (any_revision == 1 || revision_id == revision)) {
            if (matched)
                *matched = &entry;
            return 1;
        }
    }
    return 0;
}

int build_hba_info(const PciSnap &snap, uint16_t domain, uint8_t bus, uint8_t device,
                   uint8_t function, const LineToken &busid, HbaInfo *info,
                   const BuildMode &mode, const LineToken **matched = nullptr)
{
    const char *text = busid.text.c_str();
    // bus_id holds 19 characters and the NUL. A longer text (extra leading
    // zeros, say) is refused rather than cut: a cut text would name another
    // function than the numbers beside it, and the driver would be told a
    // busID the administrator never wrote.
    if (busid.text.size() >= sizeof info->bus_id) {
        report_fatal(SITE_BUS_ID_TOO_LONG);
        log_err("busID %s is longer than %d characters.\n", text,
                static_cast<int>(sizeof info->bus_id - 1));
        return -1;
    }
    const PciFunction *f = find_function(snap, domain, bus, device, function);
    if (!f) {
        report_fatal(SITE_NOT_PRESENT);
        log_err("device %s is does not exist.\n", text);
        return -1;
    }
    uint8_t revision = 0;
    uint32_t code = 0;
    if (!pci_read8(*f, &revision, PCI_REVISION_ID, &code)) {
        report_fatal(SITE_REVISION);
        log_pci_device(*f, code);
        log_err("unable to read device %s revision id.\n", text);
        return -1;
    }
    uint8_t pm = find_capability(*f, PCI_CAP_ID_PM);
    if (pm == 0) {
        report_fatal(SITE_NO_PM);
        log_err("device %s is not under the control of SHPC and it dose not have the power "
                "management function.\n",
                text);
        return -1;
    }
    int mark = alternative_pm_mark(*f, revision, mode, matched);
    if (mark == -1)
        return -1;

    info->magic = HBA_INFO_MAGIC;
    info->alt_pm = static_cast<uint32_t>(mark);
    info->domain = domain;
    info->bus = bus;
    info->device = device;
    info->function = function;
    info->revision = revision;
    info->pm_cap = pm;
    info->header_type = f->header_type;
    memcpy(info->bus_id, text, busid.text.size() + 1);
    return 0;
}

HbaInfoList *controller_list(const ShpcInfo &shpc)
{
    return static_cast<HbaInfoList *>(driver_pointer(shpc.hba_list));
}

void note_record(const BuildMode &mode, const LineToken &t, int controller, uint32_t index,
                 const LineToken *matched)
{
    if (mode.preview)
        mode.preview->adapters.push_back({&t, controller, index, matched});
}

// A preview checks each adapter while counting, so that a busID with a
// problem gets no record in either pass; true when it has one (recorded).
bool preview_refuses(const PciSnap &snap, uint16_t domain, uint8_t bus, uint8_t device,
                     uint8_t function, const LineToken &t, const BuildMode &mode)
{
    HbaInfo scratch{};
    if (build_hba_info(snap, domain, bus, device, function, t, &scratch, mode) == 0)
        return false;
    add_preview_problem(*mode.preview, PreviewStage::ADAPTER, &t);
    mode.preview->refused.insert(&t);
    return true;
}

int build_shpc_hba_info_sub(const PciSnap &snap, ShpcInfoTable *table, HbaInfoList **list,
                            BuildPass pass, const BuildMode &mode)
{
    const char *const FN = "build_shpc_hba_info_sub";
    ShpcInfo *controllers = shpc_info_records(table);
    uint32_t k = 0;  // next record of the outside list
    ShpcOwnerFinder owners(controllers, table->count);
    for (const LineToken &t : hba_addr_table) {
        if (!is_busid_token(t))
            continue;
        if (mode.preview && mode.preview->refused.count(&t))
            continue;
        uint16_t domain;
        uint8_t bus, device, function;
        if (parse_busid(t.text.c_str(), t.size, &domain, &bus, &device, &function) == -1) {
            log_callee(FN, SITE_SUB_PARSE);
            return -1;
        }
        ShpcInfo *owner = nullptr;
        bool unknown_speed = owners.find(domain, bus, device, &owner) == -1;
        if (unknown_speed && !mode.preview)
            return -1;
        if (unknown_speed) {
            // Met while counting; the filling pass skips the busID.
            add_preview_problem(*mode.preview, PreviewStage::PLACEMENT, &t);
            mode.preview->refused.insert(&t);
            continue;
        }
        if (t.flags & TOKEN_DUP_FUNCTION)
            continue;
        if (mode.preview && pass == PASS_COUNT &&
            preview_refuses(snap, domain, bus, device, function, t, mode))
            continue;
        const LineToken *matched = nullptr;
        if (owner) {
            if (pass == PASS_FILL) {
                HbaInfo *slot = &hba_info_records(controller_list(*owner))[owner->hba_count];
                if (build_hba_info(snap, domain, bus, device, function, t, slot, mode,
                                   &matched) == -1) {
                    log_callee(FN, SITE_SUB_FILL_CONTROLLER);
                    return -1;
                }
                note_record(mode, t, static_cast<int>(owner - controllers), owner->hba_count,
                            matched);
            }
            owner->hba_count++;
            if (owner->hba_count > table->max_hba_count)
                table->max_hba_count = owner->hba_count;
        } else {
            if (pass == PASS_FILL) {
                if (build_hba_info(snap, domain, bus, device, function, t,
                                   &hba_info_records(*list)[k], mode, &matched) == -1) {
                    log_callee(FN, SITE_SUB_FILL_OUTSIDE);
                    return -1;
                }
                note_record(mode, t, -1, k, matched);
            }
            k++;
        }
    }
    if (pass == PASS_FILL)
        return 0;

    *list = alloc_hba_info_list(k, nullptr);
    if (!*list) {
        log_callee(FN, SITE_SUB_OUTSIDE_LIST);
        return -1;
    }
    uint64_t total = shpc_info_table_size(table->count);
    for (uint32_t i = 0; i < table->count; i++) {
        uint32_t size = 0;
        HbaInfoList *own = alloc_hba_info_list(controllers[i].hba_count, &size);
        if (!own) {
            log_callee(FN, SITE_SUB_CONTROLLER_LIST);
            return -1;
        }
        controllers[i].hba_list = driver_address(own);
        controllers[i].hba_count = 0;  // counted again while filling
        total += size;
    }
    table->total_size = static_cast<uint32_t>(total);
    return 0;
}

void report_scan_failure(const PciSnap &snap, uint32_t code)
{
    report_fatal(SITE_SCAN);
    // The earliest-listed function kept: where the scan got to.
    if (!snap.functions.empty())
        log_pci_device(snap.functions.back(), code);
    else
        log_err("pci scan false(%x)\n", code);
}

int build(ShpcInfoTable **table_out, HbaInfoList **list_out, const BuildMode &mode)
{
    const char *const FN = "build_shpc_hba_info";
    uint32_t code = 0;
    std::unique_ptr<PciSnap> snap = pci_snap_init(&code);
    if (!snap) {
        report_no_resources(sizeof(PciSnap), SITE_NO_SNAP);
        log_err("pci snap init false(%x)\n", code);
        return -1;
    }
    if (!pci_scan(*snap, &code)) {
        report_scan_failure(*snap, code);
        return -1;
    }
    int n = search_shpc(*snap);
    if (n == -1)
        return -1;

    uint32_t count = static_cast<uint32_t>(n);
    uint64_t table_size = shpc_info_table_size(count);
    void *block = alloc_driver_block(static_cast<size_t>(table_size));
    if (!block) {
        report_no_resources(table_size, SITE_NO_TABLE);
        return -1;
    }
    auto *table = new (block) ShpcInfoTable{count, 0, 0, 0, 0};
    ShpcInfo *records = shpc_info_records(table);
    std::uninitialized_value_construct_n(records, count);
    for (const ShpcInfo &s : shpc_list)
        memcpy(records++, &s, SHPC_INFO_DISCOVERED_SIZE);

    DuplicateMarking marking;
    if (mode.preview) {
        // A busID that does not parse is a problem of its own and takes no
        // part in the marks or the passes.
        marking.on_refused = [&mode](const LineToken &t) {
            add_preview_problem(*mode.preview, PreviewStage::BUSID, &t);
            mode.preview->refused.insert(&t);
        };
    }
    if (mark_duplicate_busids(hba_addr_table, marking) == -1)
        return -1;
    HbaInfoList *list = nullptr;
    if (build_shpc_hba_info_sub(*snap, table, &list, PASS_COUNT, mode) == -1) {
        log_callee(FN, SITE_COUNTING);
        return -1;
    }
    if (build_shpc_hba_info_sub(*snap, table, &list, PASS_FILL, mode) == -1) {
        log_callee(FN, SITE_FILLING);
        return -1;
    }
    *table_out = table;
    *list_out = list;
    if (mode.preview)
        mode.preview->snap = std::move(snap);
    return 0;
}

} // namespace

HbaInfoList *alloc_hba_info_list(uint32_t count, uint32_t *size)
{
    uint64_t bytes = hba_info_list_size(count);
    void *block = alloc_driver_block(static_cast<size_t>(bytes));
    if (!block) {
        report_no_resources(bytes, SITE_NO_LIST);
        return nullptr;
    }
    auto *list = new (block) HbaInfoList{count, 0};
    std::uninitialized_value_construct_n(hba_info_records(list), count);
    if (size)
        *size = static_cast<uint32_t>(bytes);
    return list;
}

int build_shpc_hba_info(ShpcInfoTable **table, HbaInfoList **list)
{
    *table = nullptr;
    *list = nullptr;
    return build(table, list, BuildMode{});
}

int build_shpc_hba_info_preview(RegistrationPreview &preview)
{
    preview.table = nullptr;
    preview.outside = nullptr;
    BuildMode mode{&preview};
    return build(&preview.table, &preview.outside, mode);
}
