// A curve of loaded latency by the medians of its points.

#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "survey/record.h"

namespace velmo {

// A quantity with the standard deviation of its estimate, as a share of it.
struct Measured {
  double value = 0;
  double uncertainty = 0;
};

struct CurvePoint {
  Measured bandwidth;  // bytes a second
  Measured latency;    // in ns
};

// The points of `cell` that have both a bandwidth and the latency `figure` (kAverageNs, ...),
// without their uncertainties, in the order of the cell.
std::vector<CurvePoint> curve_of(const Cell& cell, std::string_view figure);

// The point of largest bandwidth; null without points.
const CurvePoint* peak_of(const std::vector<CurvePoint>& points);

// Latency where the curve first reaches `bandwidth`, coming from the least load, on the straight
// line between the two points around it. None where it does not reach so far up, or so far down.
// `points` are by rising delay of the load.
std::optional<Measured> latency_at(const std::vector<CurvePoint>& points, double bandwidth);

// The same at `share` of the largest bandwidth.
std::optional<Measured> latency_at_share(const std::vector<CurvePoint>& points, double share);

}  // namespace velmo
