// The driver exchange. A rejected request is reported with errno; the
// driver's err_num fields then name the record it refused, which is dumped
// to the log.
#include "hotplug/driver.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/ioctl.h>

#include "cli/core/report.h"
#include "hotplug/driver_memory.h"
#include "lib/unique_fd.h"

namespace {

constexpr unsigned SITE_SET_HBA = 3679;
constexpr unsigned SITE_SET_SHPC = 3699;

void log_record(const HbaInfo &h)
{
    log_err("%x %x %04x:%02x:%02x.%x(%x) %x\n", h.magic.get(), h.alt_pm.get(), h.domain.get(),
            h.bus, h.device, h.function, h.revision, h.pm_cap);
}

void log_record(const ShpcInfo &s)
{
    log_err("%x %x %04x:%02x:%02x.%x(%x) %x\n", s.magic.get(), s.reserved0.get(),
            s.domain.get(), s.bus, s.device, s.function, s.revision, s.reserved1);
    log_err("%x %x %x %x %x %x %x %x %x %llx\n", s.class_code.get(), s.secondary_bus,
            s.cap_offset, s.first_device, s.slot_count, s.slots_available_1.get(),
            s.slots_available_2.get(), s.slot_config.get(), s.sec_bus_config.get(),
            static_cast<unsigned long long>(shpc_reserved64(s)));
}

// The 1-based number the driver left, when it names one of count records.
bool names_record(int32_t err_num, uint32_t count)
{
    return err_num >= 1 && static_cast<uint32_t>(err_num) <= count;
}

} // namespace

int pass_hba_info_to_driver(ShpcInfoTable *table, HbaInfoList *list)
{
    UniqueFd driver(open(SLOTAG_DEVICE, O_RDWR));
    if (!driver) {
        report_io_error(SLOTAG_DEVICE, errno, DRIVER_OPEN_SITE);
        return -1;
    }
    // Both blocks lie below 4 GiB, so their addresses are the 32-bit ones
    // the requests carry.
    if (ioctl(driver.get(), SLOTAG_IOC_SET_HBA, list) == -1) {
        report_io_error(SLOTAG_DEVICE, errno, SITE_SET_HBA);
        log_err("err_num %d\n", list->err_num.get());
        if (names_record(list->err_num, list->count))
            log_record(hba_info_records(list)[list->err_num - 1]);
        return -1;
    }
    if (ioctl(driver.get(), SLOTAG_IOC_SET_SHPC, table) == -1) {
        report_io_error(SLOTAG_DEVICE, errno, SITE_SET_SHPC);
        log_err("err_num %d device_err_num %d\n", table->err_num.get(),
                table->device_err_num.get());
        if (names_record(table->err_num, table->count)) {
            const ShpcInfo &shpc = shpc_info_records(table)[table->err_num - 1];
            log_record(shpc);
            auto *own = static_cast<HbaInfoList *>(driver_pointer(shpc.hba_list));
            if (own && names_record(table->device_err_num, own->count))
                log_record(hba_info_records(own)[table->device_err_num - 1]);
        }
        return -1;
    }
    return 0;
}
