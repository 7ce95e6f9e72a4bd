// Duplicate marks. Comparing every busID with every later one would parse
// n² texts; instead each is parsed once and compared through two hash sets.
// The result is that of the pairwise walk (for each unmarked busID, mark the
// later unmarked ones that repeat it): a busID repeats the device of an
// earlier one exactly when it repeats the first busID of that device, and
// that first one is never marked itself, so it always does the marking.
#include "hotplug/busid_tokens.h"

#include <cstdint>
#include <new>
#include <unordered_set>
#include <vector>

#include "cli/report.h"
#include "table/busid.h"

namespace {

// The marks belong to step 6 of the HBA information build, whose name the
// callee lines carry.
constexpr const char *FN = "build_shpc_hba_info";
constexpr int SITE_FIRST = 3592;  // parsing the busID that does the marking
constexpr int SITE_LATER = 3613;  // parsing a later busID it is compared with

struct ParsedBusId {
    LineToken *token;
    uint32_t device_key;    // domain, bus, device
    uint64_t function_key;  // and the function
};

int mark(TokenList &table, std::vector<ParsedBusId> &busids, const DuplicateMarking &how)
{
    for (LineToken &t : table) {
        if (!is_busid_token(t) || is_exact_duplicate(t))
            continue;
        uint16_t domain;
        uint8_t bus, device, function;
        if (parse_busid(t.text.c_str(), t.size, &domain, &bus, &device, &function) == -1) {
            if (how.on_refused) {
                how.on_refused(t);
                continue;
            }
            // The pairwise walk parses the first busID, then every later one
            // while comparing it with the first: the first failure is met in
            // that order, after the first busID has marked the ones before it.
            if (busids.empty()) {
                log_callee(FN, SITE_FIRST);
                return -1;
            }
            const ParsedBusId &first = busids.front();
            for (size_t i = 1; i < busids.size(); i++) {
                if (busids[i].device_key == first.device_key) {
                    busids[i].token->flags |= TOKEN_DUP_DEVICE;
                    if (busids[i].function_key == first.function_key)
                        busids[i].token->flags |= TOKEN_DUP_FUNCTION;
                }
            }
            log_callee(FN, SITE_LATER);
            return -1;
        }
        uint32_t device_key = (uint32_t{domain} << 16) | (uint32_t{bus} << 8) | device;
        busids.push_back({&t, device_key, (uint64_t{device_key} << 8) | function});
    }

    std::unordered_set<uint32_t> devices_seen;
    std::unordered_set<uint64_t> functions_seen;
    devices_seen.reserve(busids.size());
    functions_seen.reserve(busids.size());
    for (const ParsedBusId &b : busids) {
        if (!devices_seen.insert(b.device_key).second)
            b.token->flags |= TOKEN_DUP_DEVICE;
        if (!functions_seen.insert(b.function_key).second)
            b.token->flags |= TOKEN_DUP_FUNCTION;
    }
    return 0;
}

} // namespace

int mark_duplicate_busids(TokenList &table, const DuplicateMarking &how)
{
    std::vector<ParsedBusId> busids;
    try {
        return mark(table, busids, how);
    } catch (const std::bad_alloc &) {
        // No room to hold the parsed busIDs: named by the place that would
        // have parsed the first one.
        report_no_resources(busids.capacity() * sizeof(ParsedBusId), SITE_FIRST);
        return -1;
    }
}
