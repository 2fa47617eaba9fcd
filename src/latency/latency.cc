#include "latency/latency.h"

#include <algorithm>
#include <chrono>
#include <iostream>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "app/clock.h"
#include "app/console.h"
#include "config/memory_report.h"
#include "latency/latency_report.h"
#include "latency/latency_thread.h"
#include "platform/prefetch.h"

namespace velmo {
namespace {

// Time of laying and flushing an element of the chain, roughly, in s.
constexpr double kLayTime = 20e-9;

// What the measurement of a worker that is set up will do.
struct Work {
  Work(const LatWorker& worker, bool delayed) {
    const LatencySpec& spec = worker.spec_;
    steps = static_cast<double>(spec.warm_up + spec.loads + spec.samples);
    const auto delays = static_cast<double>(spec.loads + spec.samples + worker.burst_len_);
    if (delayed) pauses = delays * spec.delay_ns * 1e-9;
  }

  double steps;       // loads, the warm-up's included
  double pauses = 0;  // s of the delays between them
};

}  // namespace

Latency::Latency(Configurator config) : Bench(std::move(config)) {}

void Latency::Run() {
  std::cout << "Measure Memory Latency\n";
  find_offset(config_.cpu_info);
  const auto targets = static_cast<uint32_t>(config_.num_targets);
  const int64_t wanted = config_.mem_size;
  for (node_idx_ = 0; node_idx_ < targets; ++node_idx_) {
    config_.mem_size = wanted;
    MeasureTarget();
  }
}

void Latency::MeasureTarget() {
  std::cout << kSeparator << "Memory #" << node_idx_ << " Result\n";
  UpdateFreeMem();
  if (config_.mem_size == -1) config_.mem_size = kDefaultBuffer;
  LowerSize();
  CheckHoldsStride(config_.mem_size, config_.stride);

  NumaInfo::cpu_ctx cpu = config_.latency_cpu;
  if (cpu.cpu_id == -1) cpu = GetCPUNode();
  std::cout << "cpu-numa_id: " << cpu.numa_id << '\n';

  if (config_.node_spinners) StartSpinners(cpu);
  const Buffer buffer = [&] {
    const Progress progress = ShowZeroing(config_.mem_size);
    // Memory that is bound to no node comes from the node of the CPU that touches it first.
    return AllocMem(config_.mem_size, cpu.cpu_id, 0);
  }();
  PrintSetup(cpu);

  const PrefetchersOff prefetchers(cpu.cpu_id);
  LatencySpec spec = ChaseSpec(cpu);
  ChoosePattern(prefetchers.off(), config_.mem_size, spec);
  WarnIfCached("The chain", config_.mem_size / spec.stride * kLineBytes, {cpu.cpu_id},
               config_.mem_size < free_mem_ ? kLargerSize : LimitAdvice());
  LatWorker worker(spec, config_.iter);
  worker.SetMem(buffer.data(), buffer.size());
  if (config_.delayed_latency) MeasureOn(worker, cpu, true);
  if (config_.burst_latency) MeasureOn(worker, cpu, false);
  StopSpinners();
}

void Latency::LowerSize() {
  const int64_t wanted = config_.mem_size;
  config_.mem_size = std::min(wanted, free_mem_);
  WarnIfLowered("Memory size", wanted, config_.mem_size);
}

// One spinning thread a node, away from the measuring core where the node has another.
void Latency::StartSpinners(const NumaInfo::cpu_ctx& measuring) {
  for (const auto& cpus : config_.node_cpus) {
    if (cpus.empty()) continue;
    const auto other_core = std::find_if(
        cpus.begin(), cpus.end(), [&](const auto& cpu) { return !same_core(cpu, measuring); });
    StartSpinner(other_core != cpus.end() ? &*other_core : nullptr);
  }
}

void Latency::PrintSetup(const NumaInfo::cpu_ctx& cpu) const {
  write_memory_line(std::cout, config_, static_cast<int>(node_idx_), "base addr  : 0x");
  std::cout << "\ncpu_id     : " << cpu.cpu_id << '\n';
  write_size_lines(std::cout, config_, config_.mem_size, config_.stride);
}

void Latency::MeasureOn(LatWorker& worker, const NumaInfo::cpu_ctx& cpu, bool delayed) {
  std::optional<Progress> progress;
  const int64_t elements = worker.size_ / worker.spec_.stride;
  progress.emplace(
      Phase{.label = "Laying the chain", .left = kLayTime * static_cast<double>(elements)});
  worker.InitParameter(worker.spec_.pattern, false);

  const Work work(worker, delayed);
  progress.emplace(Phase{.label = delayed ? "Measuring delayed latency" : "Measuring burst latency",
                         .left = work.pauses + work.steps * step_time_,
                         .measuring = {worker.spec_.cpu}});
  worker.stretch_ = WatchStretch({});
  AnnounceLatency(worker.spec_.pattern, delayed);
  const long start = monotonic_ns();
  {
    LatThread thread(worker, delayed ? &LatWorker::Delayed : &LatWorker::Burst);
    std::this_thread::sleep_for(std::chrono::seconds(1));
    thread.Release();
    thread.Join();
  }
  const double elapsed = seconds_since(start);
  step_time_ = (elapsed - work.pauses) / work.steps;
  worker.Summary(config_.tsc_freq);
  ReportLatency({config_, node_idx_, cpu, worker.size_, worker.spec_, delayed, worker.samples_,
                 worker.result_});
}

}  // namespace velmo
