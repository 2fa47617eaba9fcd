#include "loaded/loaded_latency.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iostream>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "app/console.h"
#include "app/system.h"
#include "bandwidth/load_team.h"
#include "latency/lat_run.h"
#include "platform/prefetch.h"

namespace velmo {
namespace {

// The sweep ends before this delay.
constexpr unsigned int kDelayEnd = 200'000;
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
  max_bw_ = 0;
  results_.clear();
  const int64_t free = UpdateFreeMem();
  ChooseCpus();

  lat_size_ = std::min(kDefaultBuffer, free / kLatencyShare / kBufferGrain * kBufferGrain);
  if (config_.mem_mode == kMemPhysical) lat_size_ = kDefaultBuffer / kLatencyShare;
  if (lat_size_ == 0) {
    Fatal() << "Not enough free memory for the latency buffer: " << free << " Byte\n";
  }
  lat_stride_ = config_.stride;
  SizeBuffers({{config_.read, config_.write, config_.stream ? 1 : 0}}, free, lat_size_);
  if (config_.node_spinners) StartLoadSpinners();
  // First touched on the CPU that will use it, as the load's buffers are.
  std::optional<TargetBuffer> lat_buffer;
  run_pinned({lat_cpu_.cpu_id}, [&](size_t) { lat_buffer.emplace(*this, lat_size_, 0); });
  lat_buf_ = lat_buffer->get();
  {
    const Progress progress = ShowZeroing(2 * buf_size_ * (thread_num_ - 1));
    AllocBuffers(lat_size_);
  }
  WriteHeader(std::cout);

  Sweep();
  PrintResult();
  StopSpinners();
  ReleaseBuffers();
}

void LoadedLatency::ChooseCpus() {
  lat_cpu_ = config_.latency_cpu.cpu_id != -1 ? config_.latency_cpu : GetCPUNode();
  ChooseLoadCpus(&lat_cpu_);
}

LoadedLatency::Result LoadedLatency::MeasurePoint(unsigned int delay) {
  Configurator point = config_;
  point.bw_delay = static_cast<int32_t>(delay);

  LatWorker worker(point);
  worker.config_.mem_size = lat_size_;
  worker.config_.latency_cpu = lat_cpu_;
  worker.SetMem(lat_buf_);
  std::optional<Progress> progress;
  progress.emplace(SweepPhase(delay, {}));
  LoadTeam team(point, LoadCpus(), LoadBuffers(), buf_size_, false);
  team.Park();

  progress.reset();  // the register's messages go past it
  const access_type_t pattern = prepare_pattern(worker);
  lat_stride_ = worker.config_.stride;
  std::vector<int> measuring = LoadCpus();
  measuring.push_back(lat_cpu_.cpu_id);
  progress.emplace(SweepPhase(delay, std::move(measuring)));
  worker.InitParameter(pattern, static_cast<int>(node_idx_), -1, true);
  LatThread thread(worker, &LatWorker::Burst);
  team.OpenGate();
  std::this_thread::sleep_for(ramp_up_);
  for (size_t t = 0; t < team.size(); ++t) team.Sample(t);

  thread.Release();
  thread.Join();
  constexpr double kBytesPerLoad = 64;
  double bandwidth = kBytesPerLoad * 1e9 / worker.avg_;
  for (size_t t = 0; t < team.size(); ++t) bandwidth += team.Sample(t);
  team.Stop();
  progress.reset();
  restore_prefetch();
  return {static_cast<double>(delay),
          bandwidth * 1e-6,
          worker.avg_,
          worker.median_,
          worker.p99_,
          worker.p99_9_,
          worker.overhead_};
}

LoadedLatency::Result LoadedLatency::Measure(unsigned int delay) {
  const Result point = MeasurePoint(delay);
  last_bw_ = point.bandwidth;
  max_bw_ = std::max(max_bw_, last_bw_);
  results_.push_back(point);
  std::cout << "Delay: " << delay << "\n  Avg. Bandwidth: " << point.bandwidth
            << " MB/s\n  Avg. Latency  : " << point.avg_latency << " ns\n";
  if (config_.verbose == 2) std::cout << "overhead      : " << point.overhead << " ns\n";
  return point;
}

Phase LoadedLatency::SweepPhase(unsigned int delay, std::vector<int> measuring) const {
  const size_t done = results_.size();
  const double passed = static_cast<double>(monotonic_ns() - sweep_start_) * 1e-9;
  const double a_point = done > 0 ? passed / static_cast<double>(done)
                                  : static_cast<double>(ramp_up_.count()) + kPointTime;
  return {.label = "Loaded latency, point " + std::to_string(done + 1) + " of about " +
                   std::to_string(done + points_ahead_) + " (delay " + std::to_string(delay) + ")",
          .left = points_ahead_ * a_point,
          .measuring = std::move(measuring),
          .begun = sweep_start_};
}

int LoadedLatency::PointsToEnd(unsigned int delay, size_t step) const {
  int points = 0;
  for (; delay < kDelayEnd; ++points) {
    step = std::min(step + 1, delay_steps_.size() - 1);
    delay += delay_steps_[step];
  }
  return points;
}

void LoadedLatency::Sweep() {
  sweep_start_ = monotonic_ns();
  if (config_.bw_delay != -1) {
    Measure(config_.bw_delay);
    return;
  }
  points_ahead_ = 1 + PointsToEnd(delay_steps_[0], 0);
  double prev_bw = Measure(0).bandwidth;
  unsigned int delay = delay_steps_[0];
  size_t step = 0;
  int held = 0;
  while (delay < kDelayEnd) {
    points_ahead_ = PointsToEnd(delay, step);
    const Result point = Measure(delay);
    const double change = std::abs(last_bw_ - prev_bw) / max_bw_;
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

void LoadedLatency::FillInLatency() {
  points_ahead_ = 1;
  SortResults();
  lat_found_ = false;
  const size_t measured = results_.size();
  for (size_t k = 0; k + 1 < measured; ++k) {
    const Result near = results_[k];
    const Result far = results_[k + 1];
    if (far.avg_latency / near.avg_latency >= lat_jump_ratio_) continue;
    RecursiveLat(static_cast<unsigned int>(near.delay), static_cast<unsigned int>(far.delay),
                 lat_low_factor_ * far.avg_latency, lat_high_factor_ * near.avg_latency);
  }
}

void LoadedLatency::Recursive(unsigned int lo, unsigned int hi, double bw_lo, double gap) {
  if (hi - lo < delay_steps_[0]) return;
  const unsigned int mid = (lo + hi) / 2;
  const Result point = Measure(mid);
  const double left = std::abs((bw_lo - point.bandwidth) / max_bw_);
  if (left > bw_change_ratio_) Recursive(lo, mid, bw_lo, left);
  if (gap - left > bw_change_ratio_) Recursive(mid, hi, point.bandwidth, gap - left);
}

void LoadedLatency::RecursiveLat(unsigned int lo, unsigned int hi, double lat_min, double lat_max) {
  if (hi - lo < delay_steps_[0]) return;
  const unsigned int mid = (lo + hi) / 2;
  const double latency = Measure(mid).avg_latency;
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
