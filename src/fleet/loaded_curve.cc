#include "fleet/loaded_curve.h"

#include <algorithm>

namespace velmo {

const CurvePoint* peak_of(const std::vector<CurvePoint>& points) {
  const auto found = std::max_element(points.begin(), points.end(), [](auto& a, auto& b) {
    return a.bandwidth.value < b.bandwidth.value;
  });
  return found == points.end() ? nullptr : &*found;
}

std::optional<Measured> latency_at(const std::vector<CurvePoint>& points, double share) {
  const CurvePoint* above = peak_of(points);
  if (above == nullptr) return std::nullopt;
  const double wanted = share * above->bandwidth.value;
  const CurvePoint* const end = points.data() + points.size();
  while (above + 1 != end && above[1].bandwidth.value > wanted) ++above;
  if (above + 1 == end) return std::nullopt;
  const CurvePoint& below = above[1];
  const double part =
      (above->bandwidth.value - wanted) / (above->bandwidth.value - below.bandwidth.value);
  return Measured{above->latency.value + part * (below.latency.value - above->latency.value),
                  std::max(above->latency.uncertainty, below.latency.uncertainty)};
}

}  // namespace velmo
