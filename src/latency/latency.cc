#include "latency/latency.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <iostream>
#include <thread>
#include <utility>

#include "app/console.h"
#include "app/system.h"
#include "mem/report.h"
#include "platform/prefetch.h"

namespace velmo {
namespace {

// Least stride of a random chase with the prefetchers on: beyond the lines that an adjacent-line
// prefetch brings along. Bytes.
constexpr int32_t kMinRandomStride = 256;

}  // namespace

Latency::Latency(Configurator config) : Bench(std::move(config)) {}

void Latency::Run() {
  std::cout << "Measure Memory Latency\n";
  find_offset(config_.cpu_info);
  const auto targets = static_cast<uint32_t>(config_.num_targets);
  const int64_t wanted = config_.mem_size;
  for (node_idx_ = 0; node_idx_ < targets; ++node_idx_) {
    config_.mem_size = wanted == -1 ? kDefaultBuffer : wanted;
    MeasureTarget();
  }
}

void Latency::MeasureTarget() {
  std::cout << kSeparator << "Memory #" << node_idx_ << " Result\n";
  UpdateFreeMem();
  config_.mem_size = std::min(config_.mem_size, free_mem_);
  CheckHolds(config_.stride);

  NumaInfo::cpu_ctx cpu = config_.latency_cpu;
  if (cpu.cpu_id == -1) cpu = GetCPUNode();
  std::cout << "cpu-numa_id: " << cpu.numa_id << '\n';

  LatWorker worker(config_);
  worker.config_.latency_cpu = cpu;
  spin_flag_ = true;
  if (config_.node_spinners) StartSpinners(cpu);
  const TargetBuffer buffer(*this, config_.mem_size, 0);
  worker.SetMem(buffer.get());
  PrintSetup(cpu);

  const access_type_t pattern = PreparePattern(worker);
  if (config_.delayed_latency) MeasureOn(worker, pattern, &LatWorker::Delayed);
  if (config_.burst_latency) MeasureOn(worker, pattern, &LatWorker::Burst);
  if (!rollback_msr()) Warn() << "Failed to rollback msr.\n";
  if (config_.node_spinners) StopSpinners();
}

// One spinning thread a node, away from the measuring core where the node has another.
void Latency::StartSpinners(const NumaInfo::cpu_ctx& measuring) {
  for (const auto& cpus : config_.node_cpus) {
    if (cpus.empty()) continue;
    const auto other_core = std::find_if(cpus.begin(), cpus.end(), [&](const auto& cpu) {
      return cpu.core_id != measuring.core_id;
    });
    StartSpinner(other_core != cpus.end() ? &*other_core : nullptr);
  }
}

void Latency::PrintSetup(const NumaInfo::cpu_ctx& cpu) const {
  write_memory_line(std::cout, config_, static_cast<int>(node_idx_), "base addr  : 0x");
  std::cout << "\ncpu_id     : " << cpu.cpu_id << '\n';
  write_size_lines(std::cout, config_, config_.stride);
}

access_type_t Latency::PreparePattern(LatWorker& worker) const {
  access_type_t pattern = kSequential;
  int32_t& stride = worker.config_.stride;
  if (!disable_prefetch(worker.config_.latency_cpu.cpu_id)) {
    Warn() << "Failed to disable prefetcher. Check the root privileges.\n";
    std::cout << "Using random access pattern to measure latency.\n";
    pattern = kRandom;
    if (stride < kMinRandomStride) {
      std::cerr << stride << " Byte stride is not enough to measure latency so increase to "
                << kMinRandomStride << " Byte.\n";
      stride = kMinRandomStride;
    }
  }
  CheckHolds(stride);
  return pattern;
}

void Latency::CheckHolds(int32_t stride) const {
  if (config_.mem_size >= stride) return;
  Fatal() << "Memory size is smaller than one stride of " << stride << " Byte: " << config_.mem_size
          << " Byte. Increase it with -m\n";
}

void Latency::MeasureOn(LatWorker& worker, access_type_t pattern, Measurement measurement) {
  worker.InitParameter(pattern, static_cast<int>(node_idx_), config_.verbose, false);
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t cond = PTHREAD_COND_INITIALIZER;
  std::thread thread = start_thread(measurement, &worker, std::ref(mutex), std::ref(cond));
  set_thread_affinity(&thread, worker.config_.latency_cpu.cpu_id);
  std::this_thread::sleep_for(std::chrono::seconds(1));
  // A thread that is not in its wait yet misses the broadcast.
  do {
    pthread_cond_broadcast(&cond);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  } while (!worker.IsReleased());
  thread.join();
}

}  // namespace velmo
