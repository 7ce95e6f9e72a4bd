// Every operand is resolved first, so the resolvers' messages come before
// the report; the disks and volumes are read once for all of them.
#include "show/targets_report.h"

#include <cstdio>

#include "resolve/targets.h"
#include "show/targets_writers.h"

TargetsOutcome show_targets(int count, char *const *operands, const RegistrationPlan &plan,
                            bool json)
{
    if (prepare_targets() == -1)
        return TargetsOutcome::NOT_PREPARED;
    std::vector<Target> targets;
    for (int i = 0; i < count; i++)
        targets.push_back(resolve_target(operands[i]));
    StorageUse storage = read_storage_use();
    TargetsModel model = make_targets_model(targets, plan, storage);
    bool written = json ? write_targets_json(stdout, model) : write_targets_text(stdout, model);
    if (!written)
        return TargetsOutcome::NOT_WRITTEN;
    return model.all_resolved() ? TargetsOutcome::ALL_RESOLVED : TargetsOutcome::SOME_UNRESOLVED;
}
