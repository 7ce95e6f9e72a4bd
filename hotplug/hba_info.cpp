// The records of the HBA information build.
#include "hotplug/hba_info.h"

#include <cstring>
#include <memory>
#include <new>

#include "cli/core/report.h"
#include "hotplug/alterpm.h"
#include "hotplug/driver_memory.h"
#include "hotplug/pci_regs.h"
#include "hotplug/pci_report.h"
#include "hotplug/shpc.h"

namespace {

constexpr unsigned SITE_NO_LIST = 3157;
constexpr unsigned SITE_NOT_PRESENT = 3275;
constexpr unsigned SITE_REVISION = 3285;
constexpr unsigned SITE_NO_PM = 3298;
constexpr int SITE_ALTERPM_ENTRY = 3313;
constexpr unsigned SITE_BUS_ID_TOO_LONG = 3320;
constexpr unsigned SITE_NO_TABLE = 3549;

// 1 when an alterpm.conf entry names this adapter (*matched set to it), 0
// when none does, -1 (reported) when an entry does not parse. An entry that
// did not parse when the file was read takes no part: the register step
// has stopped at it already, a report has it as a problem of its own.
int alternative_pm_mark(const PciFunction &f, uint8_t revision, const LineToken **matched)
{
    for (LineToken &entry : alterpm_list) {
        if (!(entry.flags & TOKEN_PARSED))
            continue;
        uint16_t vendor_id, device_id;
        uint8_t revision_id, any_revision;
        if (parse_d0_entry(entry, &vendor_id, &device_id, &revision_id, &any_revision) == -1) {
            log_callee("build_hba_info", SITE_ALTERPM_ENTRY);
            return -1;
        }
        if (vendor_id == f.vendor_id && device_id == f.device_id &&
            (any_revision == 1 || revision_id == revision)) {
            *matched = &entry;
            return 1;
        }
    }
    return 0;
}

} // namespace

int build_hba_info(const PciSnap &snap, BusIdWord &word, HbaInfo *info)
{
    const LineToken &busid = *word.token;
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
    const PciFunction *f =
        pci_find_function(snap, word.domain, word.bus, word.device, word.function);
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
    const LineToken *matched = nullptr;
    int mark = alternative_pm_mark(*f, revision, &matched);
    if (mark == -1)
        return -1;

    info->magic = HBA_INFO_MAGIC;
    info->alt_pm = static_cast<uint32_t>(mark);
    info->domain = word.domain;
    info->bus = word.bus;
    info->device = word.device;
    info->function = word.function;
    info->revision = revision;
    info->pm_cap = pm;
    info->header_type = f->header_type;
    memcpy(info->bus_id, text, busid.text.size() + 1);
    word.alterpm_entry = matched;
    word.found = f;
    return 0;
}

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

ShpcInfoTable *alloc_shpc_info_table(uint32_t count)
{
    uint64_t table_size = shpc_info_table_size(count);
    void *block = alloc_driver_block(static_cast<size_t>(table_size));
    if (!block) {
        report_no_resources(table_size, SITE_NO_TABLE);
        return nullptr;
    }
    auto *table = new (block) ShpcInfoTable{count, 0, 0, 0, 0};
    ShpcInfo *records = shpc_info_records(table);
    std::uninitialized_value_construct_n(records, count);
    for (const ShpcInfo &s : shpc_list)
        memcpy(records++, &s, SHPC_INFO_DISCOVERED_SIZE);
    return table;
}
