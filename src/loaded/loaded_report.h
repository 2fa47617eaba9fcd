// The points of a loaded-latency sweep on the console and in the log.

#pragma once

#include <cstdint>
#include <ostream>
#include <vector>

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

// The lines of a point right after it was measured; `overhead`: with the cost of timing.
void WritePoint(std::ostream& out, const LoadedResult& point, bool overhead);

// The lines of all points, with their shares of the largest bandwidth. `overhead_label` stands
// before the cost of timing; null: that is left out.
void WritePoints(std::ostream& out, const std::vector<LoadedResult>& points,
                 const char* overhead_label);

}  // namespace velmo
