#include "survey/plan_depth.h"

namespace velmo {

DepthPlan depth_plan(const SurveyOptions& options) {
  const std::vector<Mix> all = {kReads,    {3, 1, 0}, {2, 1, 0}, {1, 1, 0},
                                {1, 1, 1}, {2, 1, 1}, {0, 1, 1}};
  const std::vector<Mix> few = {kReads, {2, 1, 0}, {1, 1, 1}};
  DepthPlan plan{7, 3, 12, false, all, few};
  if (options.depth == Depth::kQuick) plan = {3, 2, 8, true, few, {kReads}};
  if (options.depth == Depth::kThorough) plan = {15, 7, 16, true, all, few};
  if (!options.mixes.empty()) {
    plan.mixes = options.mixes;
    plan.loaded_mixes = options.mixes;
    if (options.depth == Depth::kQuick) plan.loaded_mixes.resize(1, kReads);
  }
  if (options.repeats) plan.repeats = plan.few_repeats = *options.repeats;
  return plan;
}

}  // namespace velmo
