// What samples of latency say: average, cost of timing and percentiles.

#pragma once

#include <cstdint>

#include "latency/measure_latency.h"

namespace velmo {

// In ns.
struct LatencyResult {
  uint64_t samples = 0;
  double average = 0;   // without the cost of timing
  double overhead = 0;  // cost of timing a sample: mean of the samples less the average
  uint32_t p0_1 = 0;    // percentiles of the samples; these two as they were timed
  uint32_t p1 = 0;
  uint32_t median = 0;  // these three less the overhead, 0 where that is more
  uint32_t p99 = 0;
  uint32_t p99_9 = 0;
};

// `ticks_per_second` is the rate of the time-stamp counter. No samples: the average alone.
LatencyResult Summarize(const LatencySamples& samples, double ticks_per_second);

// The latency, less the cost of timing, that the share `fraction` (0 to 1) of the samples lies
// below, interpolated inside a cycle; 0 without samples. Not below 0.
double percentile_ns(const LatencySamples& samples, const LatencyResult& result,
                     double ticks_per_second, double fraction);

// Length of `cycles` of the time-stamp counter.
double cycles_to_ns(double cycles, double ticks_per_second);

}  // namespace velmo
