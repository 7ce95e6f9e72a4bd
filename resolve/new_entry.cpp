// New entries of the label table, laid out as the line reader would have
// delivered them from the file, so the writer treats them like loaded lines.
#include "resolve/new_entry.h"

#include <cstring>

#include "cli/core/report.h"
#include "table/busid.h"
#include "table/hba_addr_conf.h"
#include "table/token_list.h"

namespace {

constexpr const char *FN = "parse_hba_addr_conf_busid_add";

uint32_t text_len(const char *text) { return static_cast<uint32_t>(strlen(text)); }

} // namespace

int parse_hba_addr_conf_busid_add(const char *first_word, const char *busid_text,
                                  uint32_t busid_len)
{
    if (parse_busid(busid_text, busid_len, nullptr, nullptr, nullptr, nullptr) == -1) {
        log_callee(FN, 875);
        return -1;
    }
    const uint32_t line = hba_addr_table.empty() ? 1 : hba_addr_table.back().line + 1;
    TokenCollector collector;
    collector.list = &hba_addr_table;
    collector.next_field = 1;
    collector.at_line_start = 1;

    const uint32_t first_len = text_len(first_word);
    const uint32_t busid_column = first_len + 2;
    if (token_list_append(&collector, first_word, first_len + 1, line, 1, TOKEN_WORD) == -1) {
        log_callee(FN, 919);
        return -1;
    }
    const uint32_t busid_size = text_len(busid_text) + 1;
    if (token_list_append(&collector, busid_text, busid_size, line, busid_column, TOKEN_WORD) ==
        -1) {
        hba_addr_table.pop_back();
        log_callee(FN, 933);
        return -1;
    }
    if (token_list_append(&collector, "\n", 2, line, busid_column + busid_size, TOKEN_EOL) == -1) {
        hba_addr_table.pop_back();
        hba_addr_table.pop_back();
        log_callee(FN, 948);
        return -1;
    }
    return 1;
}
