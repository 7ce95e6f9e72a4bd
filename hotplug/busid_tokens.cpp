// Duplicate marks. Comparing every busID with every later one would parse
// n² texts; instead each is parsed once and compared through two hash
// tables. The result is that of the pairwise walk (for each unmarked busID,
// mark the later unmarked ones that repeat it): a busID repeats the device
// of an earlier one exactly when it repeats the first busID of that device,
// and that first one is never marked itself, so it always does the marking.
#include "hotplug/busid_tokens.h"

#include <new>
#include <unordered_map>
#include <unordered_set>

#include "cli/core/report.h"
#include "table/busid.h"

namespace {

// The marks belong to step 6 of the HBA information build, whose name the
// callee lines carry.
constexpr const char *FN = "build_shpc_hba_info";
constexpr int SITE_FIRST = 3592;  // parsing the busID that does the marking
constexpr int SITE_LATER = 3613;  // parsing a later busID it is compared with

uint32_t device_key(const BusIdWord &w)
{
    return (uint32_t{w.domain} << 16) | (uint32_t{w.bus} << 8) | w.device;
}

uint64_t function_key(const BusIdWord &w) { return (uint64_t{device_key(w)} << 8) | w.function; }

// The pairwise walk parses the first busID, then every later one while
// comparing it with the first: a failure is met in that order, after the
// first busID has marked the ones before it.
int stop_at(std::vector<BusIdWord> &words)
{
    const BusIdWord *first = nullptr;
    for (BusIdWord &w : words) {
        if (!w.parsed)
            continue;
        if (!first) {
            first = &w;
        } else if (device_key(w) == device_key(*first)) {
            w.token->flags |= TOKEN_DUP_DEVICE;
            if (function_key(w) == function_key(*first))
                w.token->flags |= TOKEN_DUP_FUNCTION;
        }
    }
    log_callee(FN, first ? SITE_LATER : SITE_FIRST);
    return -1;
}

int mark(TokenList &table, std::vector<BusIdWord> &words, const DuplicateMarking &how)
{
    const LineToken *entry = nullptr;
    for (LineToken &t : table) {
        if (t.field == 1 && t.is_word())
            entry = &t;
        if (!is_busid_token(t))
            continue;
        BusIdWord w{&t, entry};
        w.parsed = parse_busid(t.text.c_str(), t.size, &w.domain, &w.bus, &w.device,
                               &w.function) == 0;
        words.push_back(w);
        if (w.parsed)
            continue;
        if (!how.on_refused)
            return stop_at(words);
        how.on_refused(t);
    }

    std::unordered_set<uint32_t> devices_seen;
    std::unordered_map<uint64_t, size_t> functions_seen;
    devices_seen.reserve(words.size());
    functions_seen.reserve(words.size());
    for (size_t i = 0; i < words.size(); i++) {
        BusIdWord &w = words[i];
        if (!w.parsed)
            continue;
        if (!devices_seen.insert(device_key(w)).second)
            w.token->flags |= TOKEN_DUP_DEVICE;
        auto [first, added] = functions_seen.emplace(function_key(w), i);
        if (!added) {
            w.token->flags |= TOKEN_DUP_FUNCTION;
            w.same_as = first->second;
        }
    }
    return 0;
}

} // namespace

int mark_duplicate_busids(TokenList &table, std::vector<BusIdWord> &words,
                          const DuplicateMarking &how)
{
    words.clear();
    try {
        return mark(table, words, how);
    } catch (const std::bad_alloc &) {
        // No room to hold the parsed busIDs: named by the place that would
        // have parsed the first one.
        report_no_resources(words.capacity() * sizeof(BusIdWord), SITE_FIRST);
        return -1;
    }
}
