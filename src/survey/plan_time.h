// How long a survey takes.

#pragma once

#include <vector>

#include "survey/plan.h"

namespace velmo {

// Repeats in place of disturbed ones may add this share to the time of a survey.
inline constexpr double kExtraShare = 0.1;

// Seconds that a repeat of `plan` takes, roughly: process, set-up, measurement and release.
double repeat_seconds(const CellPlan& plan);

// Seconds that the plan takes until every cell has all its repeats, without those in place of
// disturbed ones.
double plan_seconds(const std::vector<CellPlan>& plan);

}  // namespace velmo
