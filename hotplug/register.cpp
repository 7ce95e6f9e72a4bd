// The register step: the plan, stopping at the first problem, then the
// driver.
#include "hotplug/register.h"

#include "hotplug/driver.h"
#include "hotplug/plan.h"
#include "table/hba_addr_conf.h"

int register_hba_info()
{
    // The blocks stay allocated until the run ends.
    RegistrationPlan plan;
    int planned = plan_registration(hba_addr_table, PlanMode::STOP_AT_FIRST, plan);
    // The snapshot, with its open configuration file, is done with before
    // the driver is opened.
    plan.snap.reset();
    if (planned == -1)
        return -1;
    return pass_hba_info_to_driver(plan.table, plan.outside);
}
