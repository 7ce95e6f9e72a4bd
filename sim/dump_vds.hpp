#pragma once
// The requests made of the volume manager's diagnostic device, as the
// library recorded them, for `slotag-sim dump`.

#include <string>

// requests_dir: ROOT/state/requests. Prints nothing when there were none.
void dump_vds_requests(const std::string& requests_dir);
