// The latency benchmark: burst and delayed latency of every memory target (-L, -X, -Y).

#pragma once

#include "latency/lat_worker.h"
#include "mem/bench.h"

namespace velmo {

class Latency : public Bench {
 public:
  explicit Latency(Configurator config);

  // Measures every target from the CPU next to it (or the one that was given), prefetchers off.
  // Where they cannot be switched off, a random chase stands in, with a message. What is printed
  // and logged is LatWorker's summary behind the set-up.
  void Run() override;

 private:
  using Measurement = void (LatWorker::*)(pthread_mutex_t&, pthread_cond_t&);

  void MeasureTarget();
  void StartSpinners(const NumaInfo::cpu_ctx& measuring);
  void PrintSetup(const NumaInfo::cpu_ctx& cpu) const;

  // exit(1) when the buffer does not hold one `stride`.
  void CheckHolds(int32_t stride) const;

  // Switches the prefetchers off and says which chain may be measured; widens the worker's stride
  // where only a random one may.
  access_type_t PreparePattern(LatWorker& worker) const;

  // Runs `measurement` on a thread pinned to the worker's CPU, one second after its start.
  void MeasureOn(LatWorker& worker, access_type_t pattern, Measurement measurement);
};

}  // namespace velmo
