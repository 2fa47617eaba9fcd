#include "latency/bench.h"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include "app/clock.h"
#include "app/console.h"
#include "config/advice.h"
#include "latency/probe_nearest_node.h"
#include "platform/cgroup.h"
#include "platform/text_file.h"

namespace velmo {
namespace {

constexpr int64_t kGiB = int64_t{1} << 30;

// Usable size of memory that follows the system allocation.
constexpr int64_t kUnboundFree = 4 * kGiB;
// Largest buffer of the search for the nearest CPU node.
constexpr int64_t kMaxProbe = kDefaultBuffer;
// Least stride of a random chase with the prefetchers on: beyond the lines that an adjacent-line
// prefetch brings along. Bytes.
constexpr int32_t kMinRandomStride = 256;

// Memory that holds this many times the last-level caches is read from memory for the most part.
constexpr int64_t kCachesCovered = 4;

}  // namespace

Bench::Bench(Configurator config) : config_(std::move(config)) {}

MemoryTarget Bench::Target() const {
  switch (config_.mem_mode) {
    case kMemDevdax:
      return {.kind = MemoryKind::kDevdax, .path = config_.path};
    case kMemPmem:
      return {.kind = MemoryKind::kPmem, .path = config_.path};
    case kMemPhysical:
      return {.kind = MemoryKind::kPhysical, .base = config_.base_addr[node_idx_]};
    default:
      return {.node = config_.no_memnode ? -1 : config_.memnode_list[node_idx_]};
  }
}

Buffer Bench::AllocMem(int64_t size, int cpu, int64_t offset) {
  return {Target(), size, {.cpu = cpu, .offset = offset, .zeroed = &zeroed_}};
}

Progress Bench::ShowZeroing(int64_t bytes) {
  zeroed_ = 0;
  return Progress({.label = "Zeroing " + std::to_string(bytes >> 20) + " MiB",
                   .steps = bytes,
                   .done = &zeroed_});
}

long Bench::GetFreeMemSize() const {
  if (config_.mem_mode == kMemNuma && config_.no_memnode) {
    if (config_.mem_size == -1) {
      std::cout << kWarningPrefix
                << "mem-numa_id: none. It is recommended that use -m option to set memory buffer "
                   "size or use -M option to bind memory node.\n";
    }
    return kUnboundFree;
  }
  const int64_t free = free_bytes(Target());
  if (config_.mem_mode == kMemPmem && free < 0) {
    Fatal() << "Failed to get free space on " << config_.path << '\n'
            << "              Check the pmem path.\n";
  }
  return free > 0 ? ShareOf(free) : 0;
}

int64_t Bench::ShareOf(int64_t bytes) const {
  return static_cast<int64_t>(static_cast<double>(bytes) * free_ratio_);
}

int64_t Bench::UsableInGroups() const {
  const std::optional<int64_t> left = memory_left(groups_root_);
  return left ? ShareOf(*left) : std::numeric_limits<int64_t>::max();
}

long Bench::UpdateFreeMem() {
  const bool on_node = config_.mem_mode == kMemNuma;
  const bool unbound = on_node && config_.no_memnode;
  const long told = GetFreeMemSize();
  const bool known = free_bytes(Target()) > 0;
  limit_ = unbound ? SizeLimit::kUnbound : known ? SizeLimit::kFree : SizeLimit::kUnknown;
  // A full file system refuses the file; on a full node the kernel ends processes.
  const bool fixed = told < kBufferGrain && !(on_node && known);
  int64_t usable = fixed ? kDefaultBuffer : told;

  const auto bound = [&](SizeLimit limit, int64_t most) {
    if (most >= usable) return;
    usable = most;
    limit_ = limit;
  };
  if (unbound) bound(SizeLimit::kMachine, ShareOf(machine_memory()));
  // Devices and physical ranges count against no group.
  if (on_node || config_.mem_mode == kMemPmem) bound(SizeLimit::kGroups, UsableInGroups());
  if (config_.mem_mode == kMemDevdax) {
    const int64_t size = devdax_size(config_.path);
    if (size >= 0) bound(SizeLimit::kDevice, size);
  }
  // A file in the place of a device may be smaller than the grain of buffers.
  const bool small_file = limit_ == SizeLimit::kDevice && usable < kBufferGrain;
  free_mem_ = small_file ? usable : usable / kBufferGrain * kBufferGrain;
  if (free_mem_ == 0) {
    Fatal() << "Not enough free memory to measure: " << usable << " Byte; " << LimitReason()
            << '\n';
  }
  return std::min<int64_t>(told, usable);
}

NumaInfo::cpu_ctx Bench::GetCPUNode() {
  int32_t& node = config_.cpunode_list[node_idx_];
  // A node that is nearest by the table, but has no CPU itself, is as good as unknown.
  if (!config_.HasCpus(node)) node = FindNearestCpuNode();
  return config_.MeasuringCpu(node);
}

int Bench::FindNearestCpuNode() {
  std::vector<ProbingCpu> probing;
  for (size_t n = 0; n < config_.node_cpus.size(); ++n) {
    const auto& cpus = config_.node_cpus[n];
    if (!cpus.empty()) probing.push_back({static_cast<int>(n), cpus.front().cpu_id});
  }
  if (probing.empty()) {
    Fatal() << "Failed to find a CPU: no node lists one that may be used. Check "
            << numbered_path(config_.numa_info.cpulist_fmt, 0) << '\n';
  }

  std::cout << '\n';
  Info() << "===== Find Local CPU node =====\n";
  const int64_t size = std::min(free_mem_, kMaxProbe);
  const Buffer probe = [&] {
    const Progress progress = ShowZeroing(size);
    return AllocMem(size, -1, 0);
  }();
  std::optional<Progress> progress;
  const long begun = monotonic_ns();
  const int nearest = FindNearestNode(probe, probing, [&](const ProbingCpu& from) {
    progress.emplace(Phase{.label = "Latency from node " + std::to_string(from.node) + " of " +
                                    std::to_string(config_.node_cpus.size() - 1),
                           .measuring = {from.cpu},
                           .begun = begun});
  });
  progress.reset();
  std::cout << '\n';
  Info() << "===========   End   ===========\n\n";
  return nearest;
}

void Bench::StartSpinner(const NumaInfo::cpu_ctx* cpu) {
  if (!spinners_) spinners_.emplace();
  spinners_->Start(cpu != nullptr ? cpu->cpu_id : -1);
  if (cpu != nullptr) {
    spinning_cpus_.push_back(cpu->cpu_id);
    return;
  }
  for (const auto& cpus : config_.node_cpus) {
    for (const auto& any : cpus) spinning_cpus_.push_back(any.cpu_id);
  }
}

void Bench::StopSpinners() {
  spinners_.reset();
  spinning_cpus_.clear();
}

StretchObserver Bench::WatchStretch(std::vector<int> busy) {
  if (!is_watched()) return {};
  busy.insert(busy.end(), spinning_cpus_.begin(), spinning_cpus_.end());
  return disturbances_.Observer(std::move(busy));
}

LatencySpec Bench::ChaseSpec(const NumaInfo::cpu_ctx& cpu) const {
  return {.stride = config_.stride,
          .chunk = config_.chunk,
          .delay_ns = config_.delay,
          .cpu = cpu.cpu_id};
}

void Bench::ChoosePattern(bool off, int64_t size, LatencySpec& spec) const {
  spec.pattern = off ? kSequential : kRandom;
  if (!off) {
    Warn() << "Failed to disable prefetcher. Check the root privileges.\n";
    std::cout << "Using random access pattern to measure latency.\n";
    if (spec.stride < kMinRandomStride) {
      std::cerr << spec.stride << " Byte stride is not enough to measure latency so increase to "
                << kMinRandomStride << " Byte.\n";
      spec.stride = kMinRandomStride;
    }
  }
  CheckHoldsStride(size, spec.stride);
}

void Bench::WarnIfCached(const std::string& who, int64_t bytes, std::vector<int> cpus,
                         const std::string& advice) {
  std::sort(cpus.begin(), cpus.end());
  caches_.Read(cpus);
  const int64_t cache = caches_.LastLevelBytes(cpus);
  if (bytes >= kCachesCovered * cache) return;
  constexpr int64_t kKiB = 1024;
  Warn() << who << " touches " << bytes / kKiB << " KiB of memory, less than " << kCachesCovered
         << " times the " << cache / kKiB << " KiB of last-level cache of its CPUs: the result is "
         << "that of caches, in part. " << advice << '\n';
}

void Bench::WarnIfLowered(const std::string& what, int64_t wanted, int64_t size) const {
  constexpr int64_t kMiB = int64_t{1} << 20;
  if (size >= wanted) return;
  Warn() << what << " is lowered from ";
  if (size < kMiB) {
    std::cerr << wanted << " Byte to " << size << " Byte: ";
  } else {
    std::cerr << (wanted + kMiB - 1) / kMiB << " MiB to " << size / kMiB << " MiB: ";
  }
  std::cerr << LimitReason() << '\n';
}

std::string Bench::LimitReason() const {
  const std::string share =
      "no more is used than " + std::to_string(std::lround(100 * free_ratio_)) + " % of ";
  switch (limit_) {
    case SizeLimit::kFree:
      return share + "what is free of the memory";
    case SizeLimit::kGroups:
      return share + "what the memory limit of the control group leaves";
    case SizeLimit::kMachine:
      return share + "the machine's memory";
    case SizeLimit::kUnbound:
      return "no more is used without a memory node. Choose one with -M";
    case SizeLimit::kUnknown:
      return "nobody tells how much of the memory is free";
    case SizeLimit::kDevice:
      return "the device holds no more";
  }
  return {};
}

void Bench::CheckHoldsStride(int64_t size, int32_t stride) {
  if (size >= stride) return;
  Fatal() << "Memory size is smaller than one stride of " << stride << " Byte: " << size
          << " Byte. Increase it with -m\n";
}

}  // namespace velmo
