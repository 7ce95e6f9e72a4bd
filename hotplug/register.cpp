// The register step: alterpm.conf, the records, the driver.
#include "hotplug/register.h"

#include "hotplug/alterpm.h"
#include "hotplug/driver.h"
#include "hotplug/hba_info.h"

int register_hba_info()
{
    if (parse_d0_conf() != 0)
        return -1;
    // The blocks stay allocated until the run ends.
    ShpcInfoTable *table = nullptr;
    HbaInfoList *list = nullptr;
    if (build_shpc_hba_info(&table, &list) == -1)
        return -1;
    return pass_hba_info_to_driver(table, list);
}
