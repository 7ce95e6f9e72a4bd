// The busID words of the label table (the second word of every entry) and
// the marks that tell repeated adapters apart.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "table/token_list.h"

// How the marking treats a busID that does not parse: with no on_refused
// (the register step) the marking stops, reported; with one, it is told and
// the busID takes no part.
struct DuplicateMarking {
    std::function<void(const LineToken &)> on_refused;
};

inline bool is_busid_token(const LineToken &t) { return t.field == 2 && t.is_word(); }

struct PciFunction;

// One busID word of the table: as the marking parsed it, and what the
// registration plan made of it. Kept in one record so that a table of many
// thousand lines costs one allocation, whose failure the marking reports.
struct BusIdWord {
    static constexpr size_t NONE = static_cast<size_t>(-1);
    enum class Outcome : uint8_t {
        REFUSED,    // did not parse, or a problem of its own (problem says which)
        PLACED,     // has a record: controller and index
        DUPLICATE,  // the same function as the word same_as; no record
    };
    LineToken *token;
    const LineToken *entry = nullptr;  // the first word of its line (the label's)
    bool parsed = false;
    uint16_t domain = 0;
    uint8_t bus = 0, device = 0, function = 0;
    size_t same_as = NONE;  // exact duplicates: the earlier word naming the function
    Outcome outcome = Outcome::REFUSED;
    int controller = -1;    // the controller whose slots hold it, -1 none
    uint32_t index = 0;     // placed: its record number in its list
    const LineToken *alterpm_entry = nullptr;  // placed: the entry that gave the mark
    const PciFunction *found = nullptr;        // placed: the snapshot's function
    size_t problem = NONE;  // refused while collecting: the plan's problem
};

// Every busID word of the table, in file order, parsed once; a word that
// repeats the domain, bus and device of an earlier one gets TOKEN_DUP_DEVICE,
// with TOKEN_DUP_FUNCTION added (and same_as set) when the function is the
// same too. 0, or -1 when a busID does not parse (reported, with the callee
// line of the HBA information build; words holds those parsed before it).
int mark_duplicate_busids(TokenList &table, std::vector<BusIdWord> &words,
                          const DuplicateMarking &how = {});
