#pragma once
// `slotag-sim dump ROOT [--clear]`: the driver requests recorded in
// ROOT/state/requests, decoded field by field, on standard output.

#include <string>

// With clear, the records are removed after printing. Returns false when a
// record cannot be read.
bool dump_requests(const std::string& root, bool clear);
