#include "latency/lat_worker.h"

#include <unistd.h>

#include <algorithm>

#include "app/threads.h"

namespace velmo {

LatWorker::LatWorker(const LatencySpec& spec, uint32_t laps) : spec_(spec), laps_(laps) {}

void LatWorker::SetMem(void* buf, int64_t size) {
  buf_ = buf;
  size_ = size;
}

void LatWorker::InitParameter(access_type_t type, bool burst, bool laid) {
  spec_.pattern = type;
  const auto prepare = [&](size_t) {
    if (laid) {
      flush_lines(buf_, static_cast<uint64_t>(size_ / spec_.stride), spec_.stride);
    } else {
      lay_chain(buf_, size_, spec_.stride, type);
    }
  };
  // NUMA balancing moves memory that is not bound to the node of whoever works on it.
  if (spec_.cpu >= 0) {
    run_pinned({spec_.cpu}, prepare);
  } else {
    prepare(0);
  }
  samples_ = {};
  result_ = {};

  auto elements = static_cast<uint64_t>(size_ / spec_.stride);
  spec_.loads = std::max<uint64_t>(min_loads_, elements);
  // In 32 bits: 0 - 1 is 2^32 - 1, so that laps_ = 0 is not raised.
  const uint32_t sampled_laps = laps_ - 1;
  if (target_loads_ > static_cast<double>(sampled_laps * elements)) {
    laps_ = static_cast<uint32_t>(target_loads_ / static_cast<double>(elements) + 1.0);
  }
  if (burst) {
    laps_ = 2;
    spec_.loads /= 16;
    elements = spec_.loads;
  }
  spec_.warm_up = elements;
  spec_.samples = laps_ > 1 ? (laps_ - 1) * elements : 0;
}

void LatWorker::Simple() {
  const auto lap = static_cast<uint64_t>(size_ / spec_.stride);
  result_.average = MeasureAverage(buf_, std::min<uint64_t>(simple_loads_, lap));
}

void LatWorker::Burst(Gate& gate) { Measure(gate, 0); }

void LatWorker::Delayed(Gate& gate) { Measure(gate, spec_.delay_ns); }

void LatWorker::Measure(Gate& gate, int32_t delay_ns) {
  if (spec_.chunk != 1 && spec_.chunk != 2 && spec_.chunk != 4) return;
  LatencySpec spec = spec_;
  spec.delay_ns = delay_ns;
  spec.calibration = burst_len_;
  gate.Wait();
  samples_ = PrepareSamples(spec);
  if (stretch_.begin) stretch_.begin({{gettid(), spec.cpu}});
  MeasureLatency(buf_, spec, samples_);
  if (stretch_.end) stretch_.end();
}

void LatWorker::Summary(double ticks_per_second) {
  result_ = Summarize(samples_, ticks_per_second);
}

}  // namespace velmo
