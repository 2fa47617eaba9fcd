// The choice of the delays at which loaded latency is measured.
//
// The delays are no fixed list. The sweep grows its step while the bandwidth changes little, and
// fills in points by bisection where bandwidth or latency change fast.

#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <utility>
#include <vector>

namespace velmo {

// What the sweep has to know of a point.
struct SweepPoint {
  double bandwidth;    // in any unit, the same for all points
  double avg_latency;  // ns
};

class DelaySweep {
 public:
  using Measure = std::function<SweepPoint(unsigned int delay)>;

  explicit DelaySweep(Measure measure) : measure_(std::move(measure)) {}

  // Measures all points, each delay's by one call of the function that it was given.
  void Run();

  // Points that are still to be measured, with the one that is measured now, where the bandwidth
  // changes little from there on.
  int points_ahead() const { return points_ahead_; }

  int step_hold_ = 1;  // points of little change after which the step grows
  std::array<unsigned int, 13> delay_steps_{4,   8,    16,   32,   64,   128,  256,
                                            512, 1024, 2048, 4096, 8192, 16384};
  double bw_change_ratio_ = 0.15;  // change of bandwidth, of the maximum, that is filled in
  double lat_jump_ratio_ = 0.5;    // ratio of neighbouring latencies below which is filled in
  double lat_low_factor_ = 0.3;    // bounds of the latency that a fill-in looks for
  double lat_high_factor_ = 0.7;
  double bw_floor_ratio_ = 0.05;  // the sweep ends below this fraction of the maximum bandwidth

 private:
  struct Measured {
    unsigned int delay;
    double avg_latency;
  };

  // Fills in points between the delays `lo`, whose bandwidth is `bw_lo`, and `hi`; `gap` is the
  // change of bandwidth between them as a fraction of the maximum.
  void Recursive(unsigned int lo, unsigned int hi, double bw_lo, double gap);

  // Looks between `lo` and `hi` for a point whose latency, in ns, lies between `lat_min` and
  // `lat_max`; once one was found, only below it.
  void RecursiveLat(unsigned int lo, unsigned int hi, double lat_min, double lat_max);

  SweepPoint MeasureAt(unsigned int delay);
  int PointsToEnd(unsigned int delay, size_t step) const;
  void FillInLatency();

  Measure measure_;
  std::vector<Measured> points_;
  double max_bw_ = 0;
  bool lat_found_ = false;  // a fill-in has met a latency inside its bounds
  int points_ahead_ = 1;
};

}  // namespace velmo
