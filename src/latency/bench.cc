#include "mem/bench.h"

#include <numa.h>
#include <sched.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "app/console.h"
#include "app/system.h"
#include "latency/lat_worker.h"
#include "mem/mapping.h"
#include "platform/text_file.h"

namespace velmo {
namespace {

constexpr int64_t kGiB = int64_t{1} << 30;

// Usable size of memory that follows the system allocation.
constexpr int64_t kUnboundFree = 4 * kGiB;
// The search for the nearest CPU node: size of its buffer and distance of its loads, in bytes.
constexpr int64_t kMaxProbe = kDefaultBuffer;
constexpr int32_t kProbeStride = 1024;
// Bytes that are zeroed between two reports of it.
constexpr int64_t kZeroStep = kGiB / 4;
// No memory is as slow as this, in ns.
constexpr double kWorstLatency = 100000.0;

}  // namespace

int64_t machine_memory() { return sysconf(_SC_PHYS_PAGES) * sysconf(_SC_PAGESIZE); }

std::atomic<bool> Bench::spin_flag_{true};

Bench::Bench(Configurator config) : config_(std::move(config)) {}

void Bench::AllocMem(void*& buf, long size, long offset) {
  switch (config_.mem_mode) {
    case kMemNuma:
      mmap_numa(buf, size, config_.memnode_list[node_idx_], config_.no_memnode);
      break;
    case kMemDevdax:
      mmap_devdax(buf, size, config_.path);
      break;
    case kMemPmem:
      mmap_pmem(buf, size, config_.path);
      break;
    case kMemPhysical:
      mmap_devmem(buf, config_.base_addr[node_idx_], size, true, offset);
      break;
    default:
      break;
  }
  for (int64_t done = 0; done < size; done += kZeroStep) {
    const int64_t step = std::min(kZeroStep, size - done);
    std::memset(static_cast<char*>(buf) + done, 0, step);
    zeroed_.fetch_add(step, std::memory_order_relaxed);
  }
}

Progress Bench::ShowZeroing(int64_t bytes) {
  zeroed_ = 0;
  return Progress({.label = "Zeroing " + std::to_string(bytes >> 20) + " MiB",
                   .steps = bytes,
                   .done = &zeroed_});
}

void Bench::ReleaseMem(void*& buf, long size) const {
  if (buf == nullptr) return;
  switch (config_.mem_mode) {
    case kMemNuma:
      munmap_numa(buf, size);
      break;
    case kMemDevdax:
      munmap_devdax(buf, size);
      break;
    case kMemPmem:
      munmap_pmem(buf, size);
      break;
    case kMemPhysical:
      munmap_devmem(buf, size);
      break;
    default:
      break;
  }
}

long Bench::GetFreeMemSize() {
  if (config_.mem_mode == kMemNuma) {
    if (config_.no_memnode) {
      if (config_.mem_size == -1) {
        std::cout << kWarningPrefix
                  << "mem-numa_id: none. It is recommended that use -m option to set memory buffer "
                     "size or use -M option to bind memory node.\n";
      }
      return kUnboundFree;
    }
    long long free = 0;
    numa_node_size64(config_.memnode_list[node_idx_], &free);
    return static_cast<long>(static_cast<double>(free) * free_ratio_);
  }
  if (config_.mem_mode == kMemPmem) {
    struct statfs64 status;
    if (statfs64(config_.path.c_str(), &status) != 0) {
      Fatal() << "Failed to get free space on " << config_.path << '\n'
              << "              Check the pmem path.\n";
    }
    const auto free = static_cast<double>(status.f_bsize * status.f_bavail);
    return static_cast<long>(free * free_ratio_);
  }
  return 0;
}

long Bench::UpdateFreeMem() {
  long free = GetFreeMemSize();
  if (config_.mem_mode == kMemNuma && config_.no_memnode) {
    // A fixed size, which a small machine does not have.
    free = std::min(free, static_cast<long>(static_cast<double>(machine_memory()) * free_ratio_));
  }
  free_mem_ = free / kBufferGrain * kBufferGrain;
  if (free_mem_ == 0) free_mem_ = kDefaultBuffer;
  if (config_.mem_mode == kMemDevdax) {
    const int64_t size = devdax_size(config_.path);
    if (size >= kBufferGrain) free_mem_ = std::min(free_mem_, size / kBufferGrain * kBufferGrain);
  }
  return free;
}

NumaInfo::cpu_ctx Bench::GetCPUNode() {
  int32_t& node = config_.cpunode_list[node_idx_];
  // A node that is nearest by the table, but has no CPU itself, is as good as unknown.
  if (!config_.HasCpus(node)) node = FindNearestCpuNode();
  return config_.MeasuringCpu(node);
}

int Bench::FindNearestCpuNode() {
  const auto has_cpus = [](const auto& cpus) { return !cpus.empty(); };
  const auto& nodes = config_.node_cpus;
  const auto first = std::find_if(nodes.begin(), nodes.end(), has_cpus);
  if (first == nodes.end()) {
    Fatal() << "Failed to find a CPU: no node lists one that is online. Check "
            << numbered_path(config_.numa_info.cpulist_fmt, 0) << '\n';
  }

  std::cout << '\n';
  Info() << "===== Find Local CPU node =====\n";
  LatWorker worker(config_);
  worker.config_.mem_size = std::min(free_mem_, kMaxProbe);
  worker.config_.stride = kProbeStride;
  const TargetBuffer probe(*this, worker.config_.mem_size, 0);
  worker.SetMem(probe.get());

  double best = kWorstLatency;
  // Where no node measures better: one that has a CPU to run on.
  auto nearest = static_cast<int>(first - nodes.begin());
  const long begun = monotonic_ns();
  for (size_t n = 0; n < nodes.size(); ++n) {
    if (nodes[n].empty()) continue;
    const Progress progress({.label = "Latency from node " + std::to_string(n) + " of " +
                                      std::to_string(nodes.size() - 1),
                             .measuring = {nodes[n].front().cpu_id},
                             .begun = begun});
    worker.InitParameter(kRandom, static_cast<int>(node_idx_), 0, false);
    const int cpu = nodes[n].front().cpu_id;
    run_pinned({cpu}, [&worker, cpu](size_t) {
      worker.Simple();
      check_still_pinned(cpu);
    });
    if (best > worker.avg_) {
      best = worker.avg_;
      nearest = static_cast<int>(n);
    }
  }
  std::cout << '\n';
  Info() << "===========   End   ===========\n\n";
  return nearest;
}

void Bench::StartSpinner(const NumaInfo::cpu_ctx* cpu) {
  threads_.push_back(start_thread([] {
    const sched_param priority{};
    sched_setscheduler(0, SCHED_IDLE, &priority);
    Spin();
  }));
  if (cpu != nullptr) {
    set_thread_affinity(&threads_.back(), cpu->cpu_id);
    return;
  }
  // The starting thread is pinned and hands that on.
  cpu_set_t all;
  std::memset(&all, 0xFF, sizeof all);
  pthread_setaffinity_np(threads_.back().native_handle(), sizeof all, &all);
}

void Bench::StopSpinners() {
  spin_flag_ = false;
  for (std::thread& thread : threads_) {
    // On a CPU that somebody else keeps busy, a thread of idle priority would not get to see the
    // flag. An ordinary user may be refused; the thread then ends when its CPU has a moment.
    const sched_param priority{};
    pthread_setschedparam(thread.native_handle(), SCHED_OTHER, &priority);
    thread.join();
  }
  threads_.clear();
}

void Bench::Spin() {
  timespec now;
  while (spin_flag_.load(std::memory_order_relaxed)) clock_gettime(CLOCK_MONOTONIC, &now);
}

}  // namespace velmo
