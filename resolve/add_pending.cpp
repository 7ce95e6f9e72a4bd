// Placeholder until device resolution lands: the add mode refuses to run
// rather than pretend it added anything.
#include "resolve/add.h"

#include "cli/report.h"

int parse_hba_addr_conf_add(int, char **)
{
    report_error("the add mode is not available in this build.\n");
    return -1;
}
