// busIDs: DDDD:BB:DD.F, four hexadecimal numbers as the kernel names PCI
// functions. No range check: a wider number keeps its low bits.
#include "table/busid.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>

#include "core/report.h"

namespace {

// Splits like strtok with a set of one separator: separators before a part
// are skipped, a part ends at the next separator, and no separator ('\0',
// which the text cannot hold) takes the whole rest. The part is a view into
// s: nothing is copied per part.
bool next_part(std::string_view s, size_t &pos, char separator, std::string_view &part)
{
    while (pos < s.size() && s[pos] == separator)
        pos++;
    if (pos >= s.size())
        return false;
    size_t end = pos;
    while (end < s.size() && s[end] != separator)
        end++;
    part = s.substr(pos, end - pos);
    pos = end < s.size() ? end + 1 : end;
    return true;
}

int hex_digit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

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
    unsigned long values[4];
    size_t pos = 0;
    for (int i = 0; i < 4; i++) {
        std::string_view part;
        unsigned code = 0;
        if (!next_part(copy, pos, separators[i], part)) {
            code = 0x321;
        } else {
            unsigned long v = 0;
            for (char c : part) {
                int d = hex_digit(c);
                if (d < 0) {
                    code = 0x32a;
                    break;
                }
                v = (v << 4) | static_cast<unsigned>(d);  // keeps the low bits
            }
            values[i] = v;
        }
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
