// LatWorker measures the latency of one memory target from one CPU.
//
// It works on a pointer chain that it lays into a buffer of its benchmark. A worker is given its
// buffer (SetMem), set up for one pattern (InitParameter), and runs one measuring operation on a
// thread of its own that the caller pins; Summary and the results follow once that thread is
// joined. It may then be set up again.

#pragma once

#include <cstdint>

#include "app/gate.h"
#include "latency/measure_latency.h"
#include "latency/summarize.h"
#include "platform/stretch.h"

namespace velmo {

class LatWorker {
 public:
  // Of `spec`, stride, chunk, delay and CPU count; `laps` is one more than the timed passes over
  // the chain, before they are raised to target_loads_.
  explicit LatWorker(const LatencySpec& spec, uint32_t laps = 2);
  LatWorker(const LatWorker&) = delete;
  LatWorker& operator=(const LatWorker&) = delete;

  // The buffer under test, of `size` bytes, not owned.
  void SetMem(void* buf, int64_t size);

  // Lays the chain on spec_.cpu, where it is known, else on the caller's CPU, flushes it from the
  // caches and resets the results. `burst` shortens the run for a measurement under load; a chain
  // that is `laid` is only flushed. The buffer must hold one stride.
  void InitParameter(access_type_t type, bool burst, bool laid = false);

  // Average over simple_loads_ steps of the chain, one lap of it at most, into result_.
  void Simple();

  // Wait at the gate and measure the average and the distribution of the latency, back to back
  // (Burst) or with a busy-wait of the delay behind every step (Delayed), into samples_. A chunk
  // other than 1, 2 or 4 measures nothing and does not wait.
  void Burst(Gate& gate);
  void Delayed(Gate& gate);

  // Turns samples_ into result_.
  void Summary(double ticks_per_second);

  LatencySpec spec_;
  StretchObserver stretch_;  // in which Burst and Delayed measure, told by their thread
  LatencySamples samples_;
  LatencyResult result_;

  void* buf_ = nullptr;
  int64_t size_ = 0;                    // bytes of the buffer
  uint32_t laps_;                       // one more than the sampled passes over the chain
  uint32_t burst_len_ = 100'000;        // delays of the calibration
  uint32_t simple_loads_ = 10'000'000;  // steps of Simple
  uint32_t min_loads_ = 20'000'000;     // least steps of the unsampled pass
  double target_loads_ = 30'000'000.0;  // samples that the passes together must reach

 private:
  void Measure(Gate& gate, int32_t delay_ns);
};

}  // namespace velmo
