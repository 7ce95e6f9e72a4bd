#include "locate/outcome.h"

#include <algorithm>

int exit_status(const std::vector<LocateOutcome> &outcomes)
{
    int status = EXIT_DONE;
    for (const LocateOutcome &o : outcomes)
        status = std::max(status, o.status);
    return status;
}
