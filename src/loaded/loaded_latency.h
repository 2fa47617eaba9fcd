// The loaded-latency benchmark (-Z): latency on one CPU while the others generate a bandwidth load,
// for a rising injection delay of that load.

#pragma once

#include <vector>

#include "bandwidth/load_bench.h"
#include "loaded/loaded_report.h"
#include "loaded/measure_point.h"

namespace velmo {

class LoadedLatency : public LoadBench {
 public:
  using Result = LoadedResult;

  explicit LoadedLatency(Configurator config);

  void Run() override;

  // Measures, prints and records the point of `delay`.
  Result Measure(unsigned int delay);

  // Sorts the results by delay, prints and logs them.
  void PrintResult();

  // Sets lat_size_ to a share of the `free` bytes, kDefaultBuffer at most, with a warning where
  // that is lowered; of a physical range to a fixed size. exit(1) where nothing is left.
  void SizeLatencyBuffer(int64_t free);

  // The load of the next point, whose delay is `delay`; it runs until the point is measured.
  LoadSpec PointLoad(unsigned int delay) const;

  double ramp_up_ = 5;  // s of load before the latency is measured
  std::vector<Result> results_;
  int64_t lat_size_ = 0;  // bytes of the latency buffer

 private:
  void MeasureTarget();
  void ChooseCpus();

  // The chain is laid, and the regions of the load are flushed, once a target.
  bool IsFirstPoint() const { return results_.empty(); }

  // Measures the points of a target whose CPUs and buffers are ready.
  void Sweep();
  LoadedPoint MeasureLoaded(unsigned int delay);

  // The wait for the rest of a sweep that began at `start`, whose next point is that of `delay`.
  Phase SweepPhase(int points_ahead, unsigned int delay, long start) const;

  LoadedSetup ReportSetup() const;

  NumaInfo::cpu_ctx lat_cpu_{};
  Buffer lat_buffer_;
  LatencySpec chase_;  // pattern and stride of the target's points
};

}  // namespace velmo
