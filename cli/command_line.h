// The command line: one mode and, when the environment enables them, the
// extended options.
#pragma once

// Fills g_options; 0 when the command line is valid, -1 (usage printed) if not.
int parse_option(int argc, char **argv);
// 1 when the environment enables the extended options, else 0.
int check_option_extended();
void usage();
