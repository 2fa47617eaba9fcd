#include "fleet/loaded_curve.h"

#include <algorithm>

namespace velmo {

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
