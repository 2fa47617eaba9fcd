// The points of a loaded-latency sweep on the console and in its log file.

#pragma once

#include <cstdint>
#include <ostream>
#include <vector>

#include "bandwidth/bandwidth_report.h"

namespace velmo {

// One measured point.
struct LoadedResult {
  double delay;        // injection delay of the load, in turns
  double bandwidth;    // MB/s, the latency thread's own traffic included
  double avg_latency;  // ns, as are the percentiles and the overhead
  uint32_t median;
  uint32_t p99;
  uint32_t p999;
  double overhead;  // cost of timing a sample
};

// What the points of a memory target are measured with.
struct LoadedSetup {
  LoadSetup load;
  NumaInfo::cpu_ctx cpu;  // that measures latency
  int64_t size;           // of its buffer, in bytes
  int32_t stride;         // of its chain, in bytes
};

// The lines of the set-up, on the console and in the log.
void WriteLoadedSetup(std::ostream& out, const LoadedSetup& setup);

// The lines of a point right after it was measured; `overhead`: with the cost of timing.
void WritePoint(std::ostream& out, const LoadedResult& point, bool overhead);

// The lines of all points, with their shares of the largest bandwidth. `overhead_label` stands
// before the cost of timing; null: that is left out.
void WritePoints(std::ostream& out, const std::vector<LoadedResult>& points,
                 const char* overhead_label);

// The log file: set-up and points.
void LogPoints(const LoadedSetup& setup, const std::vector<LoadedResult>& points);

}  // namespace velmo
