// One repeat of a cell, measured in this process.

#pragma once

#include <map>
#include <vector>

#include "survey/plan.h"

namespace velmo {

// Samples of latency by their length in tenths of a nanosecond.
using Samples = std::map<int64_t, int64_t>;

struct MeasuredPoint {
  int64_t delay = 0;
  Repeat repeat;
  Samples samples;
};

// What a repeat gives: of loaded latency points, of the others one repeat.
struct MeasuredRepeat {
  Repeat repeat;
  Samples samples;  // of idle latency
  std::vector<MeasuredPoint> points;
};

// Measures a cell on fresh buffers, with threads of its own. A failure ends the process (exit(1)).
// `ticks_per_second` is the rate of the time-stamp counter.
MeasuredRepeat measure_cell(const CellPlan& plan, double ticks_per_second);

Json to_json(const MeasuredRepeat& measured);
MeasuredRepeat measured_from_json(const Json& json);

// Figure of `samples`: the latency in ns that the share `fraction` of them lies below.
double percentile_ns(const Samples& samples, double fraction);

// Least number of samples of a 99.9th percentile.
inline constexpr int64_t kTailSamples = 10'000;

}  // namespace velmo
