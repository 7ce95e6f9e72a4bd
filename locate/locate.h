// From the operands to the slots' indicators: each operand is turned into
// adapters as slotag-show takes it, each adapter into the hot-plug slot that
// holds it, by the rule registration uses, and that slot into the kernel's
// entry whose attention file is written.
#pragma once

#include <vector>

#include "locate/outcome.h"

// Works on every operand, whatever became of the others; each failure is
// told on standard error as it is met. Needs the label table loaded and the
// run lock held.
std::vector<LocateOutcome> locate_operands(int count, char **operands, bool on);
