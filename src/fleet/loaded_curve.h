// What a fleet keeps of a curve of loaded latency.

#pragma once

#include <optional>
#include <vector>

namespace velmo {

// A quantity with the standard deviation of its estimate, as a share of it.
struct Measured {
  double value = 0;
  double uncertainty = 0;
};

struct CurvePoint {
  Measured bandwidth;  // bytes a second
  Measured latency;    // average, in ns
};

// The point of largest bandwidth; null without points.
const CurvePoint* peak_of(const std::vector<CurvePoint>& points);

// Latency at `share` of the largest bandwidth, linear between the two points about it, on the
// branch behind the peak: `points` are by rising delay, and those before the peak are more loaded
// than it. None where the curve does not reach so far down.
std::optional<Measured> latency_at(const std::vector<CurvePoint>& points, double share);

}  // namespace velmo
