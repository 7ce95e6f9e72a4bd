// The replacement report in words and as JSON; false when out failed.
#pragma once

#include <cstdio>

#include "show/targets_model.h"

bool write_targets_text(FILE *out, const TargetsModel &m);
bool write_targets_json(FILE *out, const TargetsModel &m);

// The controller's kind for people and for scripts.
const char *controller_kind(const ShpcInfo &c);
const char *controller_key(const ShpcInfo &c);
