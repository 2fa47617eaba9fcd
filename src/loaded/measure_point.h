// One point of loaded latency: latency on one CPU while others generate load.

#pragma once

#include <vector>

#include "bandwidth/load_team.h"
#include "latency/summarize.h"

namespace velmo {

// How long the load runs before latency is measured: until three windows in a row move the same
// number of bytes, as far as `agreement` tells.
struct RampUp {
  double window = 5.0;     // s
  double agreement = 0.0;  // largest difference of three windows, as a share; 0: one window it is
  double most = 5.0;       // s after which it is measured all the same
};

struct PointSpec {
  LatencySpec latency = {};
  LoadSpec load = {};
  std::vector<int> load_cpus = {};
  RampUp ramp_up = {};
  StretchObserver stretch = {};  // in which latency is measured
};

struct LoadedPoint {
  access_type_t pattern = kRandom;  // of the chain, with its stride in bytes
  int32_t stride = 0;
  double bandwidth = 0;  // MB/s, the latency thread's own traffic included
  LatencySamples samples = {};
  LatencyResult latency = {};
};

// Measures on threads of its own, along the chain that begins at `chain`, under load in `regions`,
// one for each load CPU. `ticks_per_second` is the rate of the time-stamp counter.
LoadedPoint MeasurePoint(const void* chain, const std::vector<LoadRegions>& regions,
                         const PointSpec& spec, double ticks_per_second);

}  // namespace velmo
