// The column filter on the volume manager's query output. The output is
// read twice through the same reader: whole, and through select_columns
// with the key "disk" and the volume query's or the class query's columns.
// An accepted filter keeps, from every line that holds the key word, just
// the wanted fields from that word on, in order, and nothing of any other
// line; a refused one must have met a key line that lacks a wanted field.
#include <map>
#include <set>
#include <string>
#include <vector>

#include "fuzz/harness.h"
#include "table/line_reader.h"
#include "table/token_list.h"

namespace {

struct Tok {
    std::string text;
    uint32_t line, field;
    bool operator==(const Tok &) const = default;
};

std::vector<Tok> as_vector(const TokenList &list)
{
    std::vector<Tok> out;
    for (const LineToken &t : list)
        out.push_back({t.text, t.line, t.field});
    return out;
}

int read_fd(int fd, TokenCollector &c, int (*end)(void *))
{
    if (lseek(fd, 0, SEEK_SET) != 0)
        abort();
    LineReaderCallbacks callbacks{token_list_init, token_list_append, end, &c};
    return read_lines(nullptr, fd, 0, &callbacks, nullptr);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    static InputFile input;
    input.fill(data + 1, size - 1);
    const bool class_query = data[0] & 1;
    const std::vector<uint32_t> wanted = class_query ? std::vector<uint32_t>{2, 4, 6}
                                                     : std::vector<uint32_t>{6};

    TokenList all_list;
    TokenCollector all;
    all.list = &all_list;
    if (read_fd(input.fd(), all, nullptr) == -1)
        return 0;  // the reader itself refused (a token too long)

    TokenList kept_list;
    TokenCollector kept;
    kept.list = &kept_list;
    kept.key = "disk";
    for (size_t i = 0; i < wanted.size(); i++)
        kept.columns[i] = wanted[i];
    const int r = read_fd(input.fd(), kept, select_columns);

    // What the filter should keep, worked out from the whole token list.
    std::map<uint32_t, uint32_t> key_field;  // line -> field of its first key word
    for (const LineToken &t : all_list)
        if (t.is_word() && t.text == "disk" && !key_field.count(t.line))
            key_field[t.line] = t.field;
    std::vector<Tok> expected;
    std::map<uint32_t, size_t> per_line;
    for (const LineToken &t : all_list) {
        auto k = key_field.find(t.line);
        if (k == key_field.end() || t.field < k->second)
            continue;
        for (uint32_t w : wanted)
            if (t.field == w) {
                expected.push_back({t.text, t.line, t.field});
                per_line[t.line]++;
            }
    }
    bool complete = true;
    for (const auto &[line, field] : key_field)
        if (per_line[line] != wanted.size())
            complete = false;

    if (r == 0) {
        FUZZ_CHECK(complete, "accepted a key line that lacks a wanted field");
        FUZZ_CHECK(as_vector(kept_list) == expected, "the filter kept the wrong tokens");
    } else {
        FUZZ_CHECK(!complete, "refused output whose key lines all hold the wanted fields");
    }
    return 0;
}
