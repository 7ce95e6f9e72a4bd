// alterpm.conf entries: the file's first words, as the registration reads
// them (line reader, first column kept), each parsed with parse_d0_entry.
// A second call must give the cached values; an accepted entry printed back
// must parse to the same values; a text whose NUL lies outside the token's
// size must be refused.
#include <cstdio>
#include <string>

#include "fuzz/harness.h"
#include "hotplug/alterpm.h"
#include "table/line_reader.h"
#include "table/token_list.h"

namespace {

struct Values {
    uint16_t vendor = 0, device = 0;
    uint8_t revision = 0, any = 0;
    bool operator==(const Values &) const = default;
};

int parse(LineToken &t, Values &v) { return parse_d0_entry(t, &v.vendor, &v.device, &v.revision, &v.any); }

LineToken token_of(const std::string &text)
{
    LineToken t;
    t.text = text;
    t.size = static_cast<uint32_t>(text.size() + 1);
    t.flags = TOKEN_IS_WORD | TOKEN_LINE_START;
    return t;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static InputFile input;
    input.fill(data, size);

    TokenList entries;
    TokenCollector collector;
    collector.list = &entries;
    collector.columns[0] = 1;
    LineReaderCallbacks callbacks{token_list_init, token_list_append, select_columns, &collector};
    if (read_lines(input.path(), -1, 0, &callbacks, nullptr) == -1)
        return 0;

    for (LineToken &entry : entries) {
        FUZZ_CHECK(entry.field == 1 && entry.is_word(), entry.text);
        LineToken unterminated = token_of(entry.text);
        unterminated.size = static_cast<uint32_t>(entry.text.size());
        FUZZ_CHECK(parse_d0_entry(unterminated, nullptr, nullptr, nullptr, nullptr) == -1,
                   "accepted without a NUL within its size: " + std::string(entry.text));

        Values first, cached;
        if (parse(entry, first) == -1) {
            FUZZ_CHECK(!(entry.flags & TOKEN_PARSED), "refused but marked parsed: " + std::string(entry.text));
            continue;
        }
        FUZZ_CHECK(entry.flags & TOKEN_PARSED, entry.text);
        FUZZ_CHECK(parse(entry, cached) == 0 && cached == first, "cache differs: " + std::string(entry.text));
        FUZZ_CHECK(!first.any || first.revision == '*', entry.text);

        char printed[32];
        if (first.any)
            snprintf(printed, sizeof printed, "%x:%x:*", first.vendor, first.device);
        else
            snprintf(printed, sizeof printed, "%x:%x:%x", first.vendor, first.device, first.revision);
        LineToken again = token_of(printed);
        Values reparsed;
        FUZZ_CHECK(parse(again, reparsed) == 0 && reparsed == first, std::string(entry.text) + " -> " + printed);
    }
    return 0;
}
