// busIDs: DDDD:BB:DD.F, four hexadecimal numbers as the kernel names PCI
// functions. No range check: a wider number keeps its low bits.
#include "table/busid.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>

#include "cli/core/report.h"
#include "table/text_fields.h"

namespace {

void refuse(unsigned code)
{
    report_site_error(code, "failed to get a busID(%x).\n", code);
    report_error("please refer to the manual for more information.\n");
}

} // namespace

int parse_busid(const char *text, uint32_t limit, uint16_t *domain, uint8_t *bus,
                uint8_t *device, uint8_t *function)
{
    size_t len = strnlen(text, limit);
    if (len >= limit) {
        refuse(0x311);
        log_err("bus_id_len %zu", static_cast<size_t>(limit));
        return -1;
    }
    std::string copy;
    try {
        copy.assign(text, len);
    } catch (const std::bad_alloc &) {
        report_no_resources(static_cast<unsigned long long>(ENOMEM), 0x319);
        return -1;
    }

    static constexpr char separators[4] = {':', ':', '.', '\0'};
    uint32_t values[4];
    size_t pos = 0;
    for (int i = 0; i < 4; i++) {
        std::string_view part;
        unsigned code = 0;
        if (!next_field(copy, pos, separators[i], part))
            code = 0x321;
        else if (!hex_low_bits(part, &values[i]))  // keeps the low bits
            code = 0x32a;
        if (code) {
            refuse(code);
            // The whole text, not the part split so far: the administrator
            // needs to see which entry was refused.
            log_err("%s.\n", copy.c_str());
            return -1;
        }
    }
    if (domain)
        *domain = static_cast<uint16_t>(values[0]);
    if (bus)
        *bus = static_cast<uint8_t>(values[1]);
    if (device)
        *device = static_cast<uint8_t>(values[2]);
    if (function)
        *function = static_cast<uint8_t>(values[3]);
    return 0;
}
