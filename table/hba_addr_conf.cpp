// The label table file: loaded whole at start and checked for syntax only;
// the busIDs are parsed when the table is registered.
#include "table/hba_addr_conf.h"

#include <cstdint>
#include <cstring>
#include <new>
#include <string_view>

#include "cli/core/options.h"
#include "cli/core/report.h"

// In static storage, constructed in place (an empty list allocates
// nothing) and never destroyed.
namespace {
alignas(TokenList) unsigned char table_storage[sizeof(TokenList)];
}
TokenList &hba_addr_table = *new (table_storage) TokenList;

namespace {

bool printable_non_blank(unsigned char c) { return c >= 0x21 && c <= 0x7e; }

// Most words are clean: a pass over eight bytes at a time tells. A byte is
// below 0x21 when taking 0x21 off borrows into its top bit while that bit
// was clear, and above 0x7e when adding 1 sets its top bit (a top bit
// already set is refused too); neither test misses a byte of the word.
bool eight_printable_non_blank(const char *p)
{
    constexpr uint64_t ONES = 0x0101010101010101ULL;
    constexpr uint64_t TOPS = 0x8080808080808080ULL;
    uint64_t x;
    memcpy(&x, p, 8);
    return ((((x - 0x21 * ONES) & ~x) | (x + ONES) | x) & TOPS) == 0;
}

bool all_printable_non_blank(std::string_view text)
{
    const char *p = text.data();
    size_t n = text.size();
    size_t i = 0;
    for (; i + 8 <= n; i += 8)
        if (!eight_printable_non_blank(p + i))
            return false;
    // The last bytes of a word of eight or more: the eight that end it,
    // some of them tested twice.
    if (n >= 8)
        return i == n || eight_printable_non_blank(p + n - 8);
    for (; i < n; i++)
        if (!printable_non_blank(static_cast<unsigned char>(p[i])))
            return false;
    return true;
}

} // namespace

int check_hba_addr_conf(void *user)
{
    auto *c = static_cast<TokenCollector *>(user);
    uint32_t highest_field = 0;
    unsigned errors = 0;
    for (const LineToken &t : *c->list) {
        if (t.is_line_start())
            highest_field = 0;
        if (t.is_word()) {
            if (t.field > highest_field)
                highest_field = t.field;
            // A word that began with a NUL reaches us empty (the reader cuts
            // a token at its NUL). Accepted, it would be written back as
            // nothing and the next run could not load the table.
            if (t.text.empty()) {
                log_err("%s(%d:%d): badly formed line in file(%x).\n", c->file_name,
                        static_cast<int>(t.line), static_cast<int>(t.column), 0x25a);
                errors++;
            }
            if (all_printable_non_blank(t.text))
                continue;
            for (size_t i = 0; i < t.text.size(); i++) {
                if (!printable_non_blank(static_cast<unsigned char>(t.text[i]))) {
                    log_err("%s(%d:%d): badly formed line in file(%x).\n", c->file_name,
                            static_cast<int>(t.line), static_cast<int>(t.column + i), 0x25a);
                    errors++;
                }
            }
        } else if (t.is_eol() && highest_field != 0 && highest_field != 2) {
            log_err("%s(%d:%d): badly formed line in file(%x).\n", c->file_name,
                    static_cast<int>(t.line), static_cast<int>(t.column), 0x263);
            errors++;
        }
    }
    return errors ? -1 : 1;
}

int load_hba_addr_conf(const char *conf_file, int32_t timeout_ms, LineReaderStatus *status)
{
    TokenCollector collector;
    collector.list = &hba_addr_table;
    collector.file_name = conf_file;
    LineReaderCallbacks callbacks = {token_list_init, token_list_append, check_hba_addr_conf,
                                     &collector};
    return read_lines(conf_file, -1, timeout_ms, &callbacks, status);
}

bool load_default_hba_addr_conf()
{
    g_options.conf_file = DEFAULT_CONF_FILE;
    g_options.timeout_sec = DEFAULT_TIMEOUT_SEC;
    CapturedMessages details;
    LineReaderStatus status = 0;
    int loaded;
    {
        ReportCapture capture(details);
        loaded = load_hba_addr_conf(g_options.conf_file, option_timeout_ms(), &status);
    }
    if (loaded == 0)
        return true;
    for (const std::string &line : details.lines)
        print_error("%s\n", line.c_str());
    report_access_failure(g_options.conf_file, status, SITE_TABLE_LOAD);
    return false;
}
