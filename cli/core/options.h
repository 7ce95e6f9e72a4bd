// The options of the run, as the command line set them: one process-wide
// instance that the subsystems read (the table file, the time-out).
#pragma once

#include <cstdint>

struct CommandOptions {
    const char *conf_file;  // -f; the label table file read
    int32_t flag_n;         // -n; recorded and logged only
    int32_t mode_register;  // -r
    int32_t mode_change;    // -c
    const char *out_file;   // -o; where a rewritten table goes, none = stdout
    int32_t timeout_sec;    // -t; every file read and child command
    int32_t mode_list;      // -l
    int32_t mode_delete;    // -d
    int32_t mode_add;       // -a
};

extern CommandOptions g_options;

constexpr const char *DEFAULT_CONF_FILE = "/etc/opt/KVTPslotag/hba_addr.conf";
constexpr int32_t DEFAULT_TIMEOUT_SEC = 120;

// timeout_sec as the milliseconds every read and child command is given.
int32_t option_timeout_ms();
