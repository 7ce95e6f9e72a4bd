// The hot-plug driver's node, which slotag -r opens last: a report that
// says "would succeed" while the node is missing promises too much.
#pragma once

#include <memory>

#include "hotplug/plan.h"

// What slotag -r would meet at /dev/slotag: null when the node is a
// character device, else a problem of the driver stage. A missing node
// carries the message slotag -r would print; a node of another kind (a
// symbolic link too) carries none, as its failure depends on what it is,
// and *kind says what it is ("a symbolic link"). The node is looked at with
// lstat only: opening it could reach the driver.
std::unique_ptr<PlanProblem> check_driver_node(const char **kind);
