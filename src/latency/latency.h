// The latency benchmark: burst and delayed latency of every memory target (-L, -X, -Y).

#pragma once

#include "latency/bench.h"
#include "latency/lat_worker.h"

namespace velmo {

class Latency : public Bench {
 public:
  explicit Latency(Configurator config);

  // Measures every target from the CPU next to it (or the one that was given), prefetchers off.
  // Where they cannot be switched off, a random chase stands in, with a message. What is printed
  // and logged is the worker's result behind the set-up.
  void Run() override;

 private:
  void MeasureTarget();

  // The size that is measured: no more than is free of the target.
  void LowerSize();
  void StartSpinners(const NumaInfo::cpu_ctx& measuring);
  void PrintSetup(const NumaInfo::cpu_ctx& cpu) const;

  // Measures on a thread of its own, released one second after its start, and reports.
  void MeasureOn(LatWorker& worker, const NumaInfo::cpu_ctx& cpu, bool delayed);

  double step_time_ = 150e-9;  // s of a step without its delay: a guess, later the latest
};

}  // namespace velmo
