// From the operands to the slots' indicators: each operand is turned into
// adapters as slotag-show takes it, each adapter into the hot-plug slot that
// holds it, by the rule registration uses, and that slot into the kernel's
// entry whose attention file is written.
#pragma once

#include <cstdio>
#include <vector>

#include "hotplug/plan.h"
#include "locate/outcome.h"

// Works on every operand, whatever became of the others; each failure is
// told on standard error as it is met, and each indicator set on `lines`
// (when given). plan: built in COLLECT_ALL mode; the resolvers must have
// been prepared (prepare_targets).
std::vector<LocateOutcome> locate_operands(const RegistrationPlan &plan, int count, char **operands,
                                           bool on, FILE *lines);
