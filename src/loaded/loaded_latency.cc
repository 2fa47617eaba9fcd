#include "loaded/loaded_latency.h"

#include <algorithm>
#include <iostream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "app/clock.h"
#include "app/console.h"
#include "latency/lat_worker.h"
#include "loaded/delay_sweep.h"
#include "loaded/measure_point.h"
#include "platform/prefetch.h"

namespace velmo {
namespace {

// The latency buffer takes at most a quarter of the usable memory.
constexpr int64_t kLatencyShare = 4;
// Time of a point besides its ramp-up before one was measured, roughly, in s.
constexpr double kPointTime = 3;

}  // namespace

LoadedLatency::LoadedLatency(Configurator config) : LoadBench(std::move(config)) {}

void LoadedLatency::Run() {
  std::cout << "Note that one cpu core will be used to measure latency\n";
  find_offset(config_.cpu_info);
  const auto targets = static_cast<uint32_t>(config_.num_targets);
  for (node_idx_ = 0; node_idx_ < targets; ++node_idx_) MeasureTarget();
}

void LoadedLatency::MeasureTarget() {
  std::cout << kSeparator << "Memory #" << node_idx_ << " Result\n";
  results_.clear();
  const int64_t free = UpdateFreeMem();
  ChooseCpus();

  SizeLatencyBuffer(free);
  chase_ = ChaseSpec(lat_cpu_);
  SizeBuffers({ConfiguredMix()}, free, lat_size_);
  WarnOfLoad({ConfiguredMix()}, config_.bw_delay != 0);
  if (config_.node_spinners) StartLoadSpinners();
  lat_buffer_ = AllocMem(lat_size_, lat_cpu_.cpu_id, 0);
  {
    const Progress progress = ShowZeroing(2 * buf_size_ * (thread_num_ - 1));
    AllocBuffers(lat_size_);
  }
  WriteLoadedSetup(std::cout, ReportSetup());
  {
    const PrefetchersOff prefetchers(lat_cpu_.cpu_id);
    ChoosePattern(prefetchers.off(), lat_size_, chase_);
    WarnIfCached("The chain", lat_size_ / chase_.stride * kLineBytes, {lat_cpu_.cpu_id},
                 lat_size_ < kDefaultBuffer && limit_ != SizeLimit::kUnknown
                     ? LimitAdvice()
                     : "-Z takes no larger one; -Y does, with -m");
    Sweep();
  }
  PrintResult();
  StopSpinners();
  ReleaseBuffers();
  lat_buffer_ = {};
}

void LoadedLatency::SizeLatencyBuffer(int64_t free) {
  lat_size_ = std::min(kDefaultBuffer, free / kLatencyShare / kBufferGrain * kBufferGrain);
  if (config_.mem_mode == kMemPhysical) lat_size_ = kDefaultBuffer / kLatencyShare;
  if (lat_size_ == 0) {
    Fatal() << "Not enough free memory for the latency buffer: " << free << " Byte\n";
  }
  // What is a quarter of a fixed size was not lowered for want of memory.
  if (!IsFixedLimit()) {
    WarnIfLowered("The latency buffer, a quarter of what is used,", kDefaultBuffer, lat_size_);
  }
}

void LoadedLatency::ChooseCpus() {
  lat_cpu_ = config_.latency_cpu.cpu_id != -1 ? config_.latency_cpu : GetCPUNode();
  ChooseLoadCpus(&lat_cpu_);
}

LoadedPoint LoadedLatency::MeasureLoaded(unsigned int delay) {
  LatWorker worker(chase_);
  worker.SetMem(lat_buffer_.data(), lat_size_);
  worker.InitParameter(chase_.pattern, true, !IsFirstPoint());
  PointSpec spec{.latency = worker.spec_,
                 .load = PointLoad(delay),
                 .load_cpus = LoadCpus(),
                 .ramp_up = {.window = ramp_up_, .most = ramp_up_},
                 .stretch = WatchStretch({})};
  spec.latency.delay_ns = 0;
  return MeasurePoint(lat_buffer_.data(), Regions(), spec, config_.tsc_freq);
}

LoadSpec LoadedLatency::PointLoad(unsigned int delay) const {
  LoadSpec load = Load(ConfiguredMix());
  load.delay = delay;
  load.flush = IsFirstPoint();
  return load;
}

LoadedLatency::Result LoadedLatency::Measure(unsigned int delay) {
  const LoadedPoint point = MeasureLoaded(delay);
  const LatencyResult& latency = point.latency;
  results_.push_back({static_cast<double>(delay), point.bandwidth, latency.average, latency.median,
                      latency.p99, latency.p99_9, latency.overhead});
  WritePoint(std::cout, results_.back(), config_.verbose == 2);
  return results_.back();
}

void LoadedLatency::PrintResult() {
  std::sort(results_.begin(), results_.end(),
            [](const Result& a, const Result& b) { return a.delay < b.delay; });
  std::cout << "\nFinal Results\n";
  WritePoints(std::cout, results_, config_.verbose == 2 ? "overhead: " : nullptr);
  if (config_.verbose >= 1) LogPoints(ReportSetup(), results_);
}

LoadedSetup LoadedLatency::ReportSetup() const {
  return {.load = Setup(), .cpu = lat_cpu_, .size = lat_size_, .stride = chase_.stride};
}

void LoadedLatency::Sweep() {
  if (config_.bw_delay != -1) {
    const Progress progress(SweepPhase(1, config_.bw_delay, monotonic_ns()));
    Measure(config_.bw_delay);
    return;
  }
  const long start = monotonic_ns();
  std::optional<DelaySweep> sweep;
  sweep.emplace([&](unsigned int delay) {
    const Progress progress(SweepPhase(sweep->points_ahead(), delay, start));
    const Result point = Measure(delay);
    return SweepPoint{point.bandwidth, point.avg_latency};
  });
  sweep->Run();
}

Phase LoadedLatency::SweepPhase(int points_ahead, unsigned int delay, long start) const {
  const size_t done = results_.size();
  const double passed = seconds_since(start);
  const double a_point = done > 0 ? passed / static_cast<double>(done) : ramp_up_ + kPointTime;
  std::vector<int> measuring = LoadCpus();
  measuring.push_back(lat_cpu_.cpu_id);
  return {.label = "Loaded latency, point " + std::to_string(done + 1) + " of about " +
                   std::to_string(done + points_ahead) + " (delay " + std::to_string(delay) + ")",
          .left = points_ahead * a_point,
          .measuring = std::move(measuring),
          .begun = start};
}

}  // namespace velmo
