#pragma once
// The state directory ROOT/state: what `slotag-sim build` leaves there for the
// preloaded library, and what the library records for `slotag-sim dump`.
// Text files, one item a line, '#' starts a comment line:
//   pci-order   entry names of /sys/bus/pci/devices in listing order
//   shpc        "NAME CAP INDEX=VALUE ..." the SHPC register file of a bridge
//   driver      "set_hba|set_shpc reject errno=E err_num=N [device_err_num=M]"
//   requests/   NNN.result and NNN-*.bin, one set per driver request
//   fsync-signal  a signal number the program is sent at each fsync
//   fsync-log   written by tests to opt in: each fsync appends what it synced
//   fsync-error "directory|file ERRNO": fsyncs of that kind fail
//   readdir-error  "DIRECTORY ERRNO COUNT": readdir of an ordered directory
//               fails with ERRNO after COUNT entries ("." and ".." included)

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace state {

inline constexpr const char* env_var = "SLOTAG_SIM_STATE";
inline constexpr const char* pci_order_file = "pci-order";
inline constexpr const char* shpc_file = "shpc";
inline constexpr const char* driver_file = "driver";
inline constexpr const char* requests_dir = "requests";
inline constexpr const char* fsync_signal_file = "fsync-signal";
inline constexpr const char* fsync_log_file = "fsync-log";
inline constexpr const char* fsync_error_file = "fsync-error";
inline constexpr const char* readdir_error_file = "readdir-error";
// Written by `run --hold-lock`: the holder's process ID, for a test to
// compare with what a program says holds the lock.
inline constexpr const char* lock_holder_file = "lock-holder";

// Lines with their blanks trimmed; empty and comment lines left out.
std::vector<std::string> content_lines(std::string_view text);

struct ShpcWindow {
    std::string function;                      // sysfs name, "0000:00:1e.0"
    std::uint8_t cap = 0;                      // configuration offset of the capability
    std::map<std::uint8_t, std::uint32_t> regs; // DWORD index -> value; others read 0
};
std::string format_shpc(const std::vector<ShpcWindow>& windows);
std::vector<ShpcWindow> parse_shpc(std::string_view text);

struct DriverRule {
    bool reject = false;
    int err = 0;
    std::int32_t err_num = 0;
    std::int32_t device_err_num = 0;
};
struct DriverRules {
    DriverRule set_hba;
    DriverRule set_shpc;
};
std::string format_driver(const DriverRules& rules);
DriverRules parse_driver(std::string_view text);

// The requests as the library records them: request N (from 1) of a root.
enum class Request { set_hba, set_shpc };
inline constexpr std::uint32_t set_hba_code = 0xC004FE00;
inline constexpr std::uint32_t set_shpc_code = 0xC004FE01;
std::string request_name(Request request);   // "SET_HBA"
std::string request_prefix(unsigned number); // "001"

} // namespace state
