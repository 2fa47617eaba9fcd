// The loaded-latency benchmark (-Z): latency on one CPU while the others generate a bandwidth load,
// for a rising injection delay of that load.
//
// The delays are no fixed list. The sweep grows its step while the bandwidth changes little, and
// fills in points by bisection where bandwidth or latency change fast.

#pragma once

#include <array>
#include <chrono>
#include <ostream>
#include <vector>

#include "bandwidth/load_bench.h"

namespace velmo {

class LoadedLatency : public LoadBench {
 public:
  // One measured point.
  struct Result {
    double delay;        // injection delay of the load, in turns
    double bandwidth;    // MB/s, the latency thread's own traffic included
    double avg_latency;  // ns, as are the percentiles and the overhead
    uint32_t median;
    uint32_t p99;
    uint32_t p999;
    double overhead;  // cost of timing a sample
  };

  explicit LoadedLatency(Configurator config);

  void Run() override;

  // Measures, prints and records the point of `delay`.
  Result Measure(unsigned int delay);

  // Fills in points between the delays `lo`, whose bandwidth is `bw_lo`, and `hi`; `gap` is the
  // change of bandwidth between them as a fraction of the maximum.
  void Recursive(unsigned int lo, unsigned int hi, double bw_lo, double gap);

  // Looks between `lo` and `hi` for a point whose latency, in ns, lies between `lat_min` and
  // `lat_max`; once one was found, only below it.
  void RecursiveLat(unsigned int lo, unsigned int hi, double lat_min, double lat_max);

  // Sorts the results by delay, prints and logs them.
  void PrintResult();

  std::chrono::seconds ramp_up_{5};  // how long the load runs before the latency is measured
  int step_hold_ = 1;                // points of little change after which the step grows
  std::array<unsigned int, 13> delay_steps_{4,   8,    16,   32,   64,   128,  256,
                                            512, 1024, 2048, 4096, 8192, 16384};
  double bw_change_ratio_ = 0.15;  // change of bandwidth, of the maximum, that is filled in
  double lat_jump_ratio_ = 0.5;    // ratio of neighbouring latencies below which is filled in
  double lat_low_factor_ = 0.3;    // bounds of the latency that a fill-in looks for
  double lat_high_factor_ = 0.7;
  double bw_floor_ratio_ = 0.05;  // the sweep ends below this fraction of the maximum bandwidth
  bool lat_found_ = false;        // a fill-in has met a latency inside its bounds
  double last_bw_ = 0;            // MB/s, of the latest point
  double max_bw_ = 0;             // MB/s, of all points so far
  std::vector<Result> results_;

 protected:
  // Runs the load and the latency measurement of one point.
  virtual Result MeasurePoint(unsigned int delay);

  // Measures all points of a target whose CPUs and buffers are ready.
  void Sweep();

 private:
  void MeasureTarget();
  void ChooseCpus();

  // Points of a sweep from `delay` on, with that step, whose bandwidth changes little from now on.
  int PointsToEnd(unsigned int delay, size_t step) const;

  // The wait for the rest of the sweep, whose next point is that of `delay`.
  Phase SweepPhase(unsigned int delay, std::vector<int> measuring) const;
  void FillInLatency();
  void SortResults();
  void WriteHeader(std::ostream& out) const;
  void WriteResults(std::ostream& out, const char* overhead_label) const;
  void WriteLog() const;

  NumaInfo::cpu_ctx lat_cpu_{};
  int64_t lat_size_ = 0;     // bytes of the latency buffer
  void* lat_buf_ = nullptr;  // owned by MeasureTarget
  int32_t lat_stride_ = 0;   // bytes, as the latest point used it
  long sweep_start_ = 0;     // monotonic clock in ns
  int points_ahead_ = 1;     // of the sweep, as far as known; with the one that is measured
};

}  // namespace velmo
