// slotag-show with operands: the replacement report for the adapters they
// name, from the one registration plan of the run.
#pragma once

#include "hotplug/plan.h"

enum class TargetsOutcome {
    ALL_RESOLVED,
    SOME_UNRESOLVED,  // reported on standard error; the others are in the report
    NOT_PREPARED,     // the resolvers could not be set up (reported)
    NOT_WRITTEN,      // standard output failed
};

TargetsOutcome show_targets(int count, char *const *operands, const RegistrationPlan &plan,
                            bool json);
