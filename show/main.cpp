// slotag-show: what `slotag -r` would hand the hot-plug driver, in words or
// as JSON, without calling the driver, writing a file or writing the
// operation log. The run lock is taken as slotag takes it, because reading
// the SHPC registers writes their select register.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <getopt.h>
#include <unistd.h>

#include "cli/core/companion.h"
#include "cli/core/options.h"
#include "cli/core/report.h"
#include "cli/core/startup.h"
#include "hotplug/plan.h"
#include "show/model.h"
#include "show/report_writers.h"
#include "show/targets_report.h"
#include "table/hba_addr_conf.h"

#ifndef SLOTAG_VERSION
#define SLOTAG_VERSION "unknown"
#endif

namespace {

constexpr int EXIT_WOULD_REGISTER = 0;
constexpr int EXIT_WOULD_FAIL = 1;
constexpr int EXIT_CANNOT_REPORT = 2;
// With operands.
constexpr int EXIT_ALL_FOUND = 0;
constexpr int EXIT_SOME_NOT_FOUND = 1;

void usage(FILE *out)
{
    fprintf(out,
            "Usage: slotag-show [--json] [WHAT...]\n"
            "Shows the hot-plug controllers, their slots and the labelled adapters as\n"
            "slotag -r would register them, and every problem that would make it fail,\n"
            "without registering anything.\n"
            "With WHAT (a label, a busID, a device path or a volume-manager class): the\n"
            "adapters it leads to, their slots, what depends on them, and whether each\n"
            "can be pulled.\n"
            "\n"
            "  --json         the report as JSON\n"
            "  -h, --help     this help\n"
            "      --version  the version\n"
            "\n"
            "Exit status: 0 slotag -r would succeed, 1 it would fail, 2 no report\n"
            "(not root, the lock, the command line, the label table).\n"
            "With WHAT: 0 every WHAT was found, 1 some was not, 2 no report.\n");
}

enum class Output { TEXT, JSON };

// Returns -1 to go on with the output chosen, or the exit status.
int parse_command_line(int argc, char **argv, Output &output, int &first_operand)
{
    enum { OPT_JSON = 256, OPT_VERSION };
    static const option longs[] = {{"json", no_argument, nullptr, OPT_JSON},
                                   {"help", no_argument, nullptr, 'h'},
                                   {"version", no_argument, nullptr, OPT_VERSION},
                                   {nullptr, 0, nullptr, 0}};
    opterr = 0;
    bool bad = false;
    int c;
    while ((c = getopt_long(argc, argv, "h", longs, nullptr)) != -1) {
        switch (c) {
        case OPT_JSON: output = Output::JSON; break;
        case 'h': usage(stdout); return output_written(stdout_flushed()) ? 0 : EXIT_CANNOT_REPORT;
        case OPT_VERSION:
            printf("slotag-show %s\n", SLOTAG_VERSION);
            return output_written(stdout_flushed()) ? 0 : EXIT_CANNOT_REPORT;
        default:
            report_unknown_option(argv);
            bad = true;
            break;
        }
    }
    first_operand = optind;
    if (bad) {
        print_error("usage: slotag-show [--json] [WHAT...] | --help | --version\n");
        return EXIT_CANNOT_REPORT;
    }
    return -1;
}

} // namespace

int main(int argc, char **argv)
{
    // Started from cron or a boot unit with a standard descriptor closed, the
    // lock file could otherwise be given its number and the report written
    // into it.
    reserve_standard_descriptors();
    Output output = Output::TEXT;
    int first_operand = argc;
    int status = parse_command_line(argc, argv, output, first_operand);
    if (status != -1)
        return status;
    if (!start_companion() || !load_default_hba_addr_conf())
        return EXIT_CANNOT_REPORT;

    RegistrationPlan plan;
    plan_registration(hba_addr_table, PlanMode::COLLECT_ALL, plan);
    if (first_operand < argc) {
        switch (show_targets(argc - first_operand, argv + first_operand, plan,
                             output == Output::JSON)) {
        case TargetsOutcome::ALL_RESOLVED: return EXIT_ALL_FOUND;
        case TargetsOutcome::SOME_UNRESOLVED: return EXIT_SOME_NOT_FOUND;
        case TargetsOutcome::NOT_PREPARED: return EXIT_CANNOT_REPORT;
        case TargetsOutcome::NOT_WRITTEN: output_written(false); return EXIT_CANNOT_REPORT;
        }
    }
    ShowModel model = make_show_model(plan, g_options.conf_file);
    bool written = output == Output::JSON ? write_json_report(stdout, model)
                                          : write_text_report(stdout, model);
    if (!output_written(written))
        return EXIT_CANNOT_REPORT;
    return model.would_succeed() ? EXIT_WOULD_REGISTER : EXIT_WOULD_FAIL;
}
