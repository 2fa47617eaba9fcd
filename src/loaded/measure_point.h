// One point of loaded latency: latency on one CPU while others generate load.

#pragma once

#include <chrono>
#include <functional>
#include <vector>

#include "bandwidth/load_team.h"
#include "latency/lat_worker.h"

namespace velmo {

struct PointSpec {
  LatencySpec latency = {};  // its pattern, stride, chunk and CPU
  LoadSpec load = {};
  std::vector<int> load_cpus = {};
  bool fresh = true;  // lay the chain and flush all memory; false: flush the chain, no more
  std::chrono::milliseconds ramp_up{5000};  // how long the load runs before latency is measured
};

struct LoadedPoint {
  access_type_t pattern = kRandom;  // of the chain, with its stride in bytes
  int32_t stride = 0;
  double bandwidth = 0;  // MB/s, the latency thread's own traffic included
  LatencyResult latency;
};

// Measures on threads of its own, with a chain in the `size` bytes at `chain` and load in
// `regions`, one for each load CPU. `ticks_per_second` is the rate of the time-stamp counter.
LoadedPoint MeasurePoint(void* chain, int64_t size, const std::vector<LoadRegions>& regions,
                         const PointSpec& spec, double ticks_per_second);

}  // namespace velmo
