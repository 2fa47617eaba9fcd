// One latency measurement: a chain that is laid in memory, walked twice. The first pass is timed as
// a whole and gives the average; the second times every load by the time-stamp counter.

#pragma once

#include <cstdint>
#include <vector>

#include "mem/chain.h"

namespace velmo {

struct LatencySpec {
  access_type_t pattern = kRandom;
  int32_t stride = 256;      // bytes between elements of the chain
  int32_t chunk = 2;         // width of the read behind each pass, in units of 8 bytes: 1, 2 or 4
  int32_t delay_ns = 0;      // busy-wait behind every load; 0: back to back
  uint64_t calibration = 0;  // delays over which the real length of the wait is measured
  uint64_t warm_up = 0;      // loads before the first pass
  uint64_t loads = 0;        // of the first pass, 1 or more
  uint64_t samples = 0;      // loads of the second pass
  int cpu = -1;              // that the measuring thread is pinned to; -1: not watched
};

struct LatencySamples {
  double average = 0;     // ns of a load in the first pass, less the real delay
  double real_delay = 0;  // ns
  long plain_ns = 0;      // length of the first pass
  long sampled_ns = 0;    // and of the second
  std::vector<int64_t> histogram =
      {};  // samples by length in cycles (latency/chase.h); empty: none
};

// Measures on the calling thread, along the chain that begins at `chain`, laid as `spec` says
// (lay_chain). exit(1) when the thread was moved from its CPU meanwhile.
LatencySamples MeasureLatency(const void* chain, const LatencySpec& spec);

// The same in two steps: room for the samples, which faults in what it takes, and the measurement.
LatencySamples PrepareSamples(const LatencySpec& spec);
void MeasureLatency(const void* chain, const LatencySpec& spec, LatencySamples& result);

// Average time of a load in ns over `loads` steps of the chain, on the calling thread.
double MeasureAverage(const void* chain, uint64_t loads);

}  // namespace velmo
