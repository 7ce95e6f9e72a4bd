// The volume manager's query command, /usr/sbin/vdsstat, run through the
// child command runner with the tool's time-out; its output goes to the
// caller's callbacks.
#pragma once

#include "table/line_reader.h"

constexpr const char *VDSSTAT = "/usr/sbin/vdsstat";

// vdsstat [OPTION] [-c CLASS] [-o VOLUME]. The exit code of the command
// is not judged. Returns 0, or -1 (reported).
int run_vdsstat_volume(const char *option, const char *vds_class, const char *volume,
                       const LineReaderCallbacks *callbacks);

// vdsstat [OPTION] [-c CLASS]; succeeds only when the command exits with
// 0. Returns 0, or -1 (logged; the caller tells the user).
int run_vdsstat_class(const char *option, const char *vds_class,
                      const LineReaderCallbacks *callbacks);
