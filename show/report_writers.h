// The two forms of slotag-show's report: text for a person, JSON for
// inventory scripts. Both write the whole model; false when out failed.
#pragma once

#include <cstdio>

#include "show/model.h"

bool write_text_report(FILE *out, const ShowModel &m);
bool write_json_report(FILE *out, const ShowModel &m);

// The summary line (no line end): what slotag -r would send, or that it
// would fail and why.
std::string summary_line(const ShowModel &m);
