// How much a survey measures: repeats, mixes and points of --quick, the default and --thorough.

#pragma once

#include <vector>

#include "bandwidth/load_plan.h"
#include "survey/options.h"

namespace velmo {

inline constexpr Mix kReads{1, 0, 0};

// What a depth means.
struct DepthPlan {
  int repeats;       // of idle and bandwidth cells
  int few_repeats;   // of sizes and loaded curves
  int points;        // of a loaded curve
  bool every_curve;  // of all memories, not one of each kind
  std::vector<Mix> mixes;
  std::vector<Mix> loaded_mixes;
};

// What `options` ask for, which may name mixes and repeats themselves.
DepthPlan depth_plan(const SurveyOptions& options);

}  // namespace velmo
