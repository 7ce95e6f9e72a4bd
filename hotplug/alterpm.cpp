// alterpm.conf entries: VENDOR:DEVICE:REVISION in hexadecimal, split the way
// strtok splits (":" before the first field skipped, a run of ":" between the
// first two fields is one separator, the third field is the rest).
#include "hotplug/alterpm.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "cli/core/options.h"
#include "cli/core/report.h"
#include "table/line_reader.h"
#include "table/text_fields.h"

TokenList alterpm_list;

namespace {

constexpr unsigned SITE_READ = 3131;
constexpr int SITE_ENTRY = 3139;
constexpr unsigned SITE_UNTERMINATED = 3014;
constexpr unsigned SITE_NO_COPY = 3023;
constexpr unsigned SITE_MISSING = 3031;
constexpr unsigned SITE_NOT_HEX = 3044;

// The parsed entry as it is kept in the token's owner_data.
struct AltPmEntry {
    uint16_t vendor_id;
    uint16_t device_id;
    uint8_t revision_id;   // '*' when any revision matches
    uint8_t any_revision;  // 1 for a "*" revision field
};
static_assert(sizeof(AltPmEntry) <= sizeof(LineToken::owner_data));

constexpr uint8_t ANY_REVISION_CHAR = '*';

void store(const AltPmEntry &e, uint16_t *vendor_id, uint16_t *device_id, uint8_t *revision_id,
           uint8_t *any_revision)
{
    if (vendor_id)
        *vendor_id = e.vendor_id;
    if (device_id)
        *device_id = e.device_id;
    if (revision_id)
        *revision_id = e.revision_id;
    if (any_revision)
        *any_revision = e.any_revision;
}

// A malformed entry: the fatal pair, then the text as splitting in place
// leaves it, cut where the first field ended.
int refuse(unsigned site, std::string_view text, size_t first_end)
{
    report_fatal(site);
    log_err("%.*s\n", static_cast<int>(first_end), text.data());
    return -1;
}

} // namespace

int parse_d0_entry(LineToken &entry, uint16_t *vendor_id, uint16_t *device_id,
                   uint8_t *revision_id, uint8_t *any_revision)
{
    AltPmEntry e;
    if (entry.flags & TOKEN_PARSED) {
        memcpy(&e, entry.owner_data, sizeof e);
        store(e, vendor_id, device_id, revision_id, any_revision);
        return 0;
    }
    size_t len = strnlen(entry.text.c_str(), entry.size);
    if (len >= entry.size) {
        report_fatal(SITE_UNTERMINATED);
        log_err("length %d line %d column %d\n", static_cast<int>(entry.size),
                static_cast<int>(entry.line), static_cast<int>(entry.column));
        return -1;
    }
    std::string text;
    try {
        text.assign(entry.text, 0, len);
    } catch (const std::bad_alloc &) {
        report_no_resources(len, SITE_NO_COPY);
        return -1;
    }

    size_t pos = 0;
    size_t first_end = text.size();  // strtok writes its first NUL here
    std::string_view vendor, device, revision;
    if (!next_field(text, pos, ':', vendor, &first_end))
        return refuse(SITE_MISSING, text, first_end);
    uint32_t vendor_value, device_value, revision_value = ANY_REVISION_CHAR;
    if (!hex_low_bits(vendor, &vendor_value))
        return refuse(SITE_NOT_HEX, text, first_end);
    if (!next_field(text, pos, ':', device))
        return refuse(SITE_MISSING, text, first_end);
    if (!hex_low_bits(device, &device_value))
        return refuse(SITE_NOT_HEX, text, first_end);
    if (pos >= text.size())
        return refuse(SITE_MISSING, text, first_end);
    revision = std::string_view(text).substr(pos);  // the rest, ":" included
    bool any = revision[0] == '*';
    if (!any && !hex_low_bits(revision, &revision_value))
        return refuse(SITE_NOT_HEX, text, first_end);

    e.vendor_id = static_cast<uint16_t>(vendor_value);
    e.device_id = static_cast<uint16_t>(device_value);
    e.revision_id = static_cast<uint8_t>(revision_value);
    e.any_revision = any ? 1 : 0;
    memcpy(entry.owner_data, &e, sizeof e);
    entry.flags |= TOKEN_PARSED;
    store(e, vendor_id, device_id, revision_id, any_revision);
    return 0;
}

namespace {

int read_d0_conf()
{
    TokenCollector collector;
    collector.list = &alterpm_list;
    collector.file_name = ALTERPM_CONF;
    collector.next_field = 1;
    collector.at_line_start = 1;
    collector.key = nullptr;
    collector.columns[0] = 1;  // the first word of each line is the entry
    LineReaderCallbacks callbacks{token_list_init, token_list_append, select_columns, &collector};
    LineReaderStatus status = 0;
    if (read_lines(ALTERPM_CONF, -1, option_timeout_ms(), &callbacks, &status) == -1) {
        report_access_failure(ALTERPM_CONF, status, SITE_READ);
        return -1;
    }
    return 0;
}

} // namespace

int parse_d0_conf(const std::function<bool(const LineToken &)> &go_on)
{
    if (read_d0_conf() == -1)
        return -1;
    for (LineToken &entry : alterpm_list) {
        if (parse_d0_entry(entry, nullptr, nullptr, nullptr, nullptr) == -1 &&
            !(go_on && go_on(entry))) {
            log_callee("parse_d0_conf", SITE_ENTRY);
            return -1;
        }
    }
    return 0;
}
