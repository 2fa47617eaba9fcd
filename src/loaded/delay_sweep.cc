#include "loaded/delay_sweep.h"

#include <algorithm>
#include <cmath>

namespace velmo {
namespace {

// The sweep ends before this delay.
constexpr unsigned int kDelayEnd = 200'000;

}  // namespace

SweepPoint DelaySweep::MeasureAt(unsigned int delay) {
  const SweepPoint point = measure_(delay);
  max_bw_ = std::max(max_bw_, point.bandwidth);
  points_.push_back({delay, point.avg_latency});
  return point;
}

int DelaySweep::PointsToEnd(unsigned int delay, size_t step) const {
  int points = 0;
  for (; delay < kDelayEnd; ++points) {
    step = std::min(step + 1, delay_steps_.size() - 1);
    delay += delay_steps_[step];
  }
  return points;
}

void DelaySweep::Run() {
  points_ahead_ = 1 + PointsToEnd(delay_steps_[0], 0);
  double prev_bw = MeasureAt(0).bandwidth;
  unsigned int delay = delay_steps_[0];
  size_t step = 0;
  int held = 0;
  while (delay < kDelayEnd) {
    points_ahead_ = PointsToEnd(delay, step);
    const SweepPoint point = MeasureAt(delay);
    const double change = std::abs(point.bandwidth - prev_bw) / max_bw_;
    if (change >= bw_change_ratio_) {
      held = 0;
      if (step != 0) Recursive(delay - delay_steps_[step], delay, prev_bw, change);
    } else if (++held == step_hold_ && step + 1 < delay_steps_.size()) {
      ++step;
      held = 0;
    }
    delay += delay_steps_[step];
    if (point.bandwidth / max_bw_ < bw_floor_ratio_) break;
    prev_bw = point.bandwidth;
  }
  FillInLatency();
}

void DelaySweep::FillInLatency() {
  points_ahead_ = 1;
  std::sort(points_.begin(), points_.end(),
            [](const Measured& a, const Measured& b) { return a.delay < b.delay; });
  lat_found_ = false;
  const size_t measured = points_.size();
  for (size_t k = 0; k + 1 < measured; ++k) {
    const Measured near = points_[k];
    const Measured far = points_[k + 1];
    if (far.avg_latency / near.avg_latency >= lat_jump_ratio_) continue;
    RecursiveLat(near.delay, far.delay, lat_low_factor_ * far.avg_latency,
                 lat_high_factor_ * near.avg_latency);
  }
}

void DelaySweep::Recursive(unsigned int lo, unsigned int hi, double bw_lo, double gap) {
  if (hi - lo < delay_steps_[0]) return;
  const unsigned int mid = (lo + hi) / 2;
  const SweepPoint point = MeasureAt(mid);
  const double left = std::abs((bw_lo - point.bandwidth) / max_bw_);
  if (left > bw_change_ratio_) Recursive(lo, mid, bw_lo, left);
  if (gap - left > bw_change_ratio_) Recursive(mid, hi, point.bandwidth, gap - left);
}

void DelaySweep::RecursiveLat(unsigned int lo, unsigned int hi, double lat_min, double lat_max) {
  if (hi - lo < delay_steps_[0]) return;
  const unsigned int mid = (lo + hi) / 2;
  const double latency = MeasureAt(mid).avg_latency;
  if (lat_min <= latency && latency <= lat_max) {
    lat_found_ = true;
    RecursiveLat(lo, mid, latency * lat_low_factor_, latency * lat_high_factor_);
  } else if (!lat_found_) {
    if (lat_min > latency) {
      RecursiveLat(lo, mid, lat_min, lat_max);
    } else {
      RecursiveLat(mid, hi, lat_min, lat_max);
    }
  }
}

}  // namespace velmo
