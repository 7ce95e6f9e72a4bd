// slotag-locate's output: a line per adapter for a person, or one JSON
// object per operand and adapter for scripts. Failures are told on standard
// error by the caller as they happen; the JSON carries them too.
#pragma once

#include <cstdio>
#include <vector>

#include "locate/outcome.h"

// A line for an adapter whose indicator was set; false when out failed.
bool write_text_outcome(FILE *out, const LocateOutcome &o);
// Every outcome, as one JSON object; false when out failed.
bool write_json_outcomes(FILE *out, const std::vector<LocateOutcome> &outcomes, bool on);
// The failure of one outcome, in plain words, on standard error.
void print_failure(const LocateOutcome &o);
