// The busID words of the label table (the second word of every entry) and
// the marks that tell repeated adapters apart.
#pragma once

#include <functional>

#include "table/token_list.h"

// How the marking treats a busID that does not parse: with no on_refused
// (the register step) the marking stops, reported; with one, it is told and
// the busID takes no part.
struct DuplicateMarking {
    std::function<void(const LineToken &)> on_refused;
};

inline bool is_busid_token(const LineToken &t) { return t.field == 2 && t.is_word(); }

// Both marks: the same function as an earlier busID.
inline bool is_exact_duplicate(const LineToken &t)
{
    return (t.flags & (TOKEN_DUP_DEVICE | TOKEN_DUP_FUNCTION)) ==
           (TOKEN_DUP_DEVICE | TOKEN_DUP_FUNCTION);
}

// Marks every busID token that repeats the domain, bus and device of an
// earlier one with TOKEN_DUP_DEVICE, adding TOKEN_DUP_FUNCTION when the
// function is the same too. Tokens already marked as exact duplicates take
// no part. 0, or -1 when a busID does not parse (reported, with the callee
// line of the HBA information build).
int mark_duplicate_busids(TokenList &table, const DuplicateMarking &how = {});
