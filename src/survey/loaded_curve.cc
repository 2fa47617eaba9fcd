#include "survey/loaded_curve.h"

#include <algorithm>

namespace velmo {

std::vector<CurvePoint> curve_of(const Cell& cell, std::string_view figure) {
  std::vector<CurvePoint> points;
  for (const Point& point : cell.points) {
    const double bandwidth = median_of(point.summary, kBytesPerSecond).value_or(0);
    const double latency = median_of(point.summary, figure).value_or(0);
    if (bandwidth > 0 && latency > 0) points.push_back({{bandwidth, 0}, {latency, 0}});
  }
  return points;
}

const CurvePoint* peak_of(const std::vector<CurvePoint>& points) {
  const auto found = std::max_element(points.begin(), points.end(), [](auto& a, auto& b) {
    return a.bandwidth.value < b.bandwidth.value;
  });
  return found == points.end() ? nullptr : &*found;
}

std::optional<Measured> latency_at(const std::vector<CurvePoint>& points, double bandwidth) {
  const auto above = std::find_if(points.rbegin(), points.rend(), [bandwidth](auto& point) {
    return point.bandwidth.value >= bandwidth;
  });
  if (above == points.rbegin() || above == points.rend()) return std::nullopt;
  const CurvePoint& below = *(above - 1);
  const double part =
      (bandwidth - below.bandwidth.value) / (above->bandwidth.value - below.bandwidth.value);
  return Measured{below.latency.value + part * (above->latency.value - below.latency.value),
                  std::max(above->latency.uncertainty, below.latency.uncertainty)};
}

std::optional<Measured> latency_at_share(const std::vector<CurvePoint>& points, double share) {
  const CurvePoint* peak = peak_of(points);
  return peak == nullptr ? std::nullopt : latency_at(points, share * peak->bandwidth.value);
}

}  // namespace velmo
