// The command line. getopt reports every bad option; the whole line is then
// refused with the usage, so the administrator sees all mistakes at once.
#include "cli/command_line.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "cli/core/options.h"
#include "cli/core/report.h"

namespace {

constexpr const char *EXTENDED_OPTIONS = ":adlcrf:no:t:";
constexpr const char *PLAIN_OPTIONS = ":adlcr";

void set_defaults(CommandOptions &o)
{
    o.conf_file = DEFAULT_CONF_FILE;
    o.flag_n = 0;
    o.mode_register = 0;
    o.mode_change = 0;
    o.out_file = nullptr;
    o.timeout_sec = DEFAULT_TIMEOUT_SEC;
    o.mode_list = 0;
    o.mode_delete = 0;
    o.mode_add = 0;
}

// Printable in the POSIX locale; getopt hands bytes of 0x80 and above over
// as negative values, which must not reach isprint.
bool printable(int c) { return c >= 0x20 && c <= 0x7e; }

} // namespace

void usage()
{
    print_error("usage: slotag -a DEVICE-PATH\n");
    print_error("  or:  slotag -d LABEL\n");
    print_error("  or:  slotag -c OLD-LABEL NEW-LABEL\n");
    print_error("  or:  slotag -l | -r\n");
}

int check_option_extended()
{
    const char *value = getenv("KVTPslotag");
    if (!value)
        return 0;
    // Compared with its terminating NUL: only exactly this value passes.
    if (strncmp(value, "KESTREL", 8) != 0)
        return 0;
    log_info("option has been extended.\n");
    return 1;
}

int parse_option(int argc, char **argv)
{
    const char *optstring = check_option_extended() ? EXTENDED_OPTIONS : PLAIN_OPTIONS;
    CommandOptions &o = g_options;
    set_defaults(o);
    opterr = 0;
    optind = 0;  // a full start, also when parsing more than once
    const char *out = nullptr;
    bool error = false;

    int c;
    while ((c = getopt(argc, argv, optstring)) != -1) {
        switch (c) {
        case 'a': o.mode_add = 1; break;
        case 'c': o.mode_change = 1; break;
        case 'd': o.mode_delete = 1; break;
        case 'l': o.mode_list = 1; break;
        case 'r': o.mode_register = 1; break;
        case 'f':
            o.conf_file = optarg;
            log_info("specify -f %s.\n", optarg);
            break;
        case 'n':
            // Recorded and logged; nothing in the tool depends on it.
            o.flag_n = 1;
            log_info("specify -n.\n");
            break;
        case 'o':
            out = optarg;
            log_info("specify -o %s.\n", optarg);
            break;
        case 't':
            o.timeout_sec = static_cast<int32_t>(strtol(optarg, nullptr, 0));
            log_info("specify -t %d\n", o.timeout_sec);
            break;
        case ':':
            print_error("option -%c requires an argument.\n", optopt);
            error = true;
            break;
        default:
            if (printable(optopt))
                print_error("unknown option -%c.\n", optopt);
            else
                // getopt stores the byte through the platform's char: signed
                // on x86, unsigned on arm64, ppc64el and s390x. The code
                // shown is the signed one everywhere (0xffffffe9 for 0xe9).
                print_error("unknown option character 0x%x.\n",
                            static_cast<unsigned>(static_cast<signed char>(optopt)));
            error = true;
            break;
        }
    }

    int operands = argc - optind;
    int modes = o.mode_add + o.mode_change + o.mode_delete + o.mode_list + o.mode_register;
    bool invalid = error || modes != 1 || (o.mode_add && operands < 1) ||
                   (o.mode_delete && operands < 1) || (o.mode_change && operands != 2) ||
                   (o.mode_list && operands != 0);
    if (invalid) {
        usage();
        return -1;
    }
    if (!out)
        o.out_file = o.conf_file;
    else if (strcmp(out, "-") == 0)
        o.out_file = nullptr;
    else
        o.out_file = out;
    return 0;
}
