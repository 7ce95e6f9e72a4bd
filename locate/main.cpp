// slotag-locate: lights (or puts out) the attention indicator of the slot
// that holds each named adapter, so that the person at the chassis pulls the
// right card. It takes the run lock as slotag does, because finding the
// slots reads the SHPC registers through their select register.
//
// It writes no operation log: that log records what slotag did to the label
// table and the driver, and an indicator is neither; the resolvers' progress
// lines would fill it with runs that changed nothing slotag keeps.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <getopt.h>
#include <unistd.h>

#include "cli/core/companion.h"
#include "cli/core/report.h"
#include "cli/core/startup.h"
#include "locate/locate.h"
#include "locate/report.h"
#include "resolve/targets.h"
#include "table/hba_addr_conf.h"

#ifndef SLOTAG_VERSION
#define SLOTAG_VERSION "unknown"
#endif

namespace {

struct Request {
    bool on = true;
    bool json = false;
};

void usage(FILE *out)
{
    fprintf(out,
            "Usage: slotag-locate [--off] [--json] WHAT...\n"
            "Turns on the attention indicator of the hot-plug slot holding each adapter\n"
            "that WHAT names: a label of the table, a busID, a device path (disk,\n"
            "partition, multipath device, volume) or a volume-manager class.\n"
            "\n"
            "  --off          turn the indicators off\n"
            "  --json         the outcome as JSON\n"
            "  -h, --help     this help\n"
            "      --version  the version\n"
            "\n"
            "Exit status: 0 done, 1 cannot run, 2 an operand names no adapter, 3 an\n"
            "adapter is in no hot-plug slot, 4 the kernel lists no slot for it, 5 the\n"
            "slot has no attention indicator, 6 the kernel refused; the highest wins.\n");
}

// Returns -1 to go on, or the exit status.
int parse_command_line(int argc, char **argv, Request &request)
{
    enum { OPT_OFF = 256, OPT_JSON, OPT_VERSION };
    static const option longs[] = {{"off", no_argument, nullptr, OPT_OFF},
                                   {"json", no_argument, nullptr, OPT_JSON},
                                   {"help", no_argument, nullptr, 'h'},
                                   {"version", no_argument, nullptr, OPT_VERSION},
                                   {nullptr, 0, nullptr, 0}};
    opterr = 0;
    bool bad = false;
    int c;
    while ((c = getopt_long(argc, argv, "h", longs, nullptr)) != -1) {
        switch (c) {
        case OPT_OFF: request.on = false; break;
        case OPT_JSON: request.json = true; break;
        case 'h': usage(stdout); return output_written(stdout_flushed()) ? 0 : EXIT_CANNOT_RUN;
        case OPT_VERSION:
            printf("slotag-locate %s\n", SLOTAG_VERSION);
            return output_written(stdout_flushed()) ? 0 : EXIT_CANNOT_RUN;
        default:
            report_unknown_option(argv);
            bad = true;
            break;
        }
    }
    if (optind == argc && !bad) {
        print_error("nothing to locate: name at least one adapter.\n");
        bad = true;
    }
    if (bad) {
        print_error("usage: slotag-locate [--off] [--json] WHAT... | --help | --version\n");
        return EXIT_CANNOT_RUN;
    }
    return -1;
}

// The controllers and their slots, as slotag -r would find them; false when
// the bus itself cannot be read (told with slotag's messages).
bool plan_slots(RegistrationPlan &plan)
{
    if (plan_registration(hba_addr_table, PlanMode::COLLECT_ALL, plan) == 0 && plan.built())
        return true;
    for (const PlanProblem &p : plan.problems)
        for (const std::string &line : p.messages)
            print_error("%s\n", line.c_str());
    print_error("the hot-plug controllers cannot be found.\n");
    return false;
}

} // namespace

int main(int argc, char **argv)
{
    // Started from a script with a standard descriptor closed, the lock
    // file could otherwise be given its number and the text written into it.
    reserve_standard_descriptors();
    Request request;
    int status = parse_command_line(argc, argv, request);
    if (status != -1)
        return status;
    if (!start_companion() || !load_default_hba_addr_conf())
        return EXIT_CANNOT_RUN;

    RegistrationPlan plan;
    if (prepare_targets() == -1 || !plan_slots(plan))
        return EXIT_CANNOT_RUN;

    std::vector<LocateOutcome> outcomes = locate_operands(
        plan, argc - optind, argv + optind, request.on, request.json ? nullptr : stdout);
    bool written = !request.json || write_json_outcomes(stdout, outcomes, request.on);
    written = stdout_flushed() && written;
    // The indicators are set whatever happens to the text; a script reading
    // it still learns that its output is incomplete.
    if (!output_written(written))
        return std::max(exit_status(outcomes), EXIT_CANNOT_RUN);
    return exit_status(outcomes);
}
