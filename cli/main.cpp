// slotag: keeps the label table of the host bus adapters in hot-plug slots
// and registers it with the hot-plug driver. One run is one pass: root check,
// log, lock, command line, table load, one mode, end line.
#include <cerrno>
#include <cstdlib>
#include <new>
#include <unistd.h>

#include "cli/command_line.h"
#include "cli/core/options.h"
#include "cli/core/report.h"
#include "cli/core/run_lock.h"
#include "cli/core/startup.h"
#include "cli/core/user_log.h"
#include "hotplug/register.h"
#include "resolve/add.h"
#include "table/hba_addr_conf.h"
#include "table/label_edit.h"
#include "table/table_writer.h"

namespace {

constexpr const char *LOG_PATH = "/var/opt/KVTPslotag/log/user.log";
constexpr int32_t LOG_SIZE_LIMIT = 0x100000;
constexpr int32_t LOG_GENERATIONS = 4;

// An exception that reaches the run sequence is reported at the step it
// came out of. Every allocation the subsystems make is checked where it is
// made; these two sites are a last resort for what a library call may still
// throw, so that no run ends in std::terminate without its report, its end
// line and its status.
constexpr unsigned SITE_NO_MEMORY = 0x1080;  // lack of resources(ENOMEM:1080)
constexpr unsigned SITE_EXCEPTION = 0x1081;  // there was a fatal error(1081)

// Runs one step of the run sequence; an exception out of it is reported and
// becomes the step's failure (-1), so the run ends the way that step fails.
template <typename Step>
int guarded(Step &&step)
{
    try {
        return step();
    } catch (const std::bad_alloc &) {
        report_no_resources(ENOMEM, SITE_NO_MEMORY);
    } catch (...) {
        report_fatal(SITE_EXCEPTION);
    }
    return -1;
}

// Every way out of a run after the log is open logs the place it ended.
[[noreturn]] void finish(unsigned site, int status)
{
    log_info("end(%x).\n", site);
    exit(status);
}

[[noreturn]] void run_change(char **operands)
{
    int r = guarded([&] { return parse_hba_addr_conf_change(operands[0], operands[1]); });
    if (r == -1)
        finish(0x102c, 8);
    if (r == 0) {
        print_error("label %s is not found.\n", operands[0]);
        exit(8);
    }
    if (guarded(register_hba_info) == -1)
        finish(0x1035, 20);
    if (guarded([] { return write_hba_addr_conf(g_options.out_file); }) == -1)
        finish(0x103b, 32);
    finish(0x103f, 0);
}

[[noreturn]] void run_delete(int count, char **operands)
{
    bool deleted = false;
    // Not guarded: the delete only marks and unlinks tokens, it allocates
    // nothing and cannot fail.
    for (int i = 0; i < count; i++) {
        if (parse_hba_addr_conf_delete(operands[i]) > 0)
            deleted = true;
        else
            print_error("label %s is not found.\n", operands[i]);
    }
    if (!deleted)
        finish(0x1058, 12);
    if (guarded(register_hba_info) == -1)
        finish(0x105e, 20);
    if (guarded([] { return write_hba_addr_conf(g_options.out_file); }) == -1)
        finish(0x1064, 32);
    finish(0x1069, 0);
}

} // namespace

int main(int argc, char **argv)
{
    // Before anything is opened: a closed standard descriptor must not be
    // handed to the log or the table, nor a message meant for it written there.
    reserve_standard_descriptors();
    if (geteuid() != 0) {
        print_error("must run as root.\n");
        return 1;
    }
    uint32_t code = 0;
    g_user_log = user_log_open(program_invocation_short_name, LOG_PATH, LOG_SIZE_LIMIT,
                               LOG_GENERATIONS, &code);
    if (!g_user_log) {
        print_error("initialization failed(%x).\n", code);
        return 2;
    }
    log_info("start.\n");

    // Opening and locking allocate nothing that could throw.
    RunLock lock = take_run_lock();
    if (lock == RunLock::OPEN_FAILED)
        finish(0xfce, 10);
    if (lock == RunLock::LOCK_FAILED)
        finish(0xfd3, 11);

    if (guarded([=] { return parse_option(argc, argv); }) == -1)
        finish(0xfda, 3);
    const CommandOptions &o = g_options;
    log_info("option %d %d %d %d\n", o.mode_add, o.mode_delete, o.mode_list, o.mode_register);

    LineReaderStatus status = 0;
    if (guarded([&] { return load_hba_addr_conf(o.conf_file, option_timeout_ms(), &status); }) ==
        -1) {
        report_access_failure(o.conf_file, status, SITE_TABLE_LOAD);
        finish(0xff5, 4);
    }

    char **operands = argv + optind;
    int operand_count = argc - optind;
    if (o.mode_list) {
        if (guarded([] { return write_hba_addr_conf(nullptr); }) == -1)
            finish(0x1002, 30);
        finish(0x1006, 0);
    }
    if (o.mode_add) {
        if (guarded([=] { return parse_hba_addr_conf_add(operand_count, operands); }) < 1)
            finish(0x1012, 6);
        if (guarded(register_hba_info) == -1)
            finish(0x1018, 7);
        if (guarded([&] { return write_hba_addr_conf(o.out_file); }) == -1)
            finish(0x101e, 31);
        finish(0x1022, 0);
    }
    if (o.mode_change)
        run_change(operands);
    if (o.mode_delete)
        run_delete(operand_count, operands);
    if (guarded(register_hba_info) == -1)
        finish(0x1072, 9);
    finish(0x1076, 0);
}
