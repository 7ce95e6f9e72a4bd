// What each problem of the report means to an administrator: what is wrong
// and what to do about it, by the stage at which slotag -r meets it and the
// site number it prints. slotag's own messages are fixed and terse; these
// words are where a site number is explained.
#pragma once

#include "hotplug/plan.h"

struct Explanation {
    const char *wrong;   // what is wrong, and why slotag -r cares
    const char *action;  // what to do about it
};

// The words for a problem at stage with site (0: none); the stage's own
// general words when the site has none of its own.
const Explanation &explain(PlanStage stage, unsigned site);
