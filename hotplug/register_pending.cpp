// Placeholder until hot-plug registration lands: registration fails rather
// than pretend the driver was told.
#include "hotplug/register.h"

#include "cli/report.h"

int register_hba_info()
{
    report_error("registration is not available in this build.\n");
    return -1;
}
