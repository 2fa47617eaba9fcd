// Which CPUs a cell keeps busy so that no node falls asleep beside it.

#pragma once

#include <vector>

#include "survey/plan.h"

namespace velmo {

// One CPU of every node of `machine` without load of the cell, apart from the core that measures;
// none where the machine wants none.
std::vector<int> awake_cpus(const CellPlan& plan, const Topology& machine);

}  // namespace velmo
