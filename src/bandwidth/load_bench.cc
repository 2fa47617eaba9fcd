#include "bandwidth/load_bench.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include "app/console.h"
#include "app/text.h"
#include "app/threads.h"

namespace velmo {
namespace {

constexpr int64_t kMiB = int64_t{1} << 20;

// Region of a load thread on memory whose free size is not known.
constexpr int64_t kDeviceRegion = 100 * kMiB;

// Fewer delays than these in a second of a thread, and no figure tells the load.
constexpr int kFewDelays = 100;

std::vector<int> sorted_unique(std::vector<int> values) {
  std::sort(values.begin(), values.end());
  values.erase(std::unique(values.begin(), values.end()), values.end());
  return values;
}

// Bytes that a region needs for one pass of `mix`.
int64_t pass_size(const Mix& mix, bool full) {
  const LoadPlan plan(mix, full, kBlocksPerPass);
  return std::max(plan.read_step, plan.write_step);
}

}  // namespace

std::vector<NumaInfo::cpu_ctx> LoadBench::CandidateCpus() {
  if (!config_.load_cpu.empty()) return config_.load_cpu;
  if (config_.bandwidth_local == 1) {
    GetCPUNode();  // finds the node where it is not known
    return config_.node_cpus[config_.cpunode_list[node_idx_]];
  }
  std::vector<NumaInfo::cpu_ctx> cpus;
  for (const auto& node : config_.node_cpus) cpus.insert(cpus.end(), node.begin(), node.end());
  return cpus;
}

// A load on a hyper-thread of the core that measures latency would share its caches and its time.
// Where fewer than two CPUs would be left, one of them for the main thread, it is the lesser evil.
void LoadBench::LeaveOutSiblings(const NumaInfo::cpu_ctx& measuring,
                                 std::vector<NumaInfo::cpu_ctx>& cpus) {
  std::vector<NumaInfo::cpu_ctx> others = cpus;
  std::erase_if(others, [&](const auto& cpu) { return same_core(cpu, measuring); });
  if (others.size() >= 2) cpus = std::move(others);
}

void LoadBench::ChooseLoadCpus(const NumaInfo::cpu_ctx* reserved) {
  std::vector<NumaInfo::cpu_ctx> cpus = CandidateCpus();
  load_nodes_.clear();
  if (reserved != nullptr) {
    std::erase_if(cpus, [reserved](const auto& cpu) { return cpu.cpu_id == reserved->cpu_id; });
    if (config_.load_cpu.empty()) LeaveOutSiblings(*reserved, cpus);
    load_nodes_.push_back(reserved->numa_id);
    if (cpus.size() == 1) {
      Warn() << "The main thread shares CPU " << cpus.front().cpu_id
             << " with the only load thread: no other CPU is left\n";
      cpus.push_back(cpus.front());
    }
  }
  const int candidates = static_cast<int>(cpus.size());
  thread_num_ = config_.thread == -1 ? candidates : config_.thread;
  if (thread_num_ > candidates) {
    const bool all = config_.numa_info.UsableCount() >= sysconf(_SC_NPROCESSORS_ONLN);
    const char* kind = all ? "online" : "usable";
    Warn() << "The number of " << kind << " cpu is less than -j (--thread) argument\n"
           << "                Maximum " << kind << " cpu: " << candidates << '\n';
    thread_num_ = candidates;
  }
  cpus.resize(thread_num_);
  std::sort(cpus.begin(), cpus.end(),
            [](const auto& a, const auto& b) { return a.cpu_id < b.cpu_id; });

  bw_cpus_.clear();
  std::vector<int> nodes;
  for (const auto& cpu : cpus) {
    bw_cpus_.push_back(cpu.cpu_id);
    nodes.push_back(cpu.numa_id);
  }
  if (thread_num_ < 2) {
    if (reserved != nullptr) {
      Fatal() << "A CPU is needed for the load, besides CPU " << reserved->cpu_id
              << ", which measures latency\n";
    }
    Fatal() << "At least two CPUs are needed, one for the main thread and one for the load. "
            << "There is: " << vector_to_str_range(bw_cpus_, 0) << '\n';
  }
  bw_cpus_str_ = vector_to_str_range(bw_cpus_, 1);
  bw_numa_str_ = vector_to_str_range(sorted_unique({nodes.begin() + 1, nodes.end()}), 0);
  load_nodes_.insert(load_nodes_.end(), nodes.begin(), nodes.end());
  load_nodes_ = sorted_unique(load_nodes_);
  set_cpu_affinity(bw_cpus_.front());
}

void LoadBench::StartLoadSpinners() {
  auto next_load_node = load_nodes_.begin();
  for (size_t n = 0; n < config_.node_cpus.size() && next_load_node != load_nodes_.end(); ++n) {
    const auto& cpus = config_.node_cpus[n];
    if (cpus.empty()) continue;
    if (static_cast<int>(n) == *next_load_node) {
      ++next_load_node;
    } else {
      StartSpinner(&cpus.front());
    }
  }
}

void LoadBench::SizeBuffers(const std::vector<Mix>& mixes, int64_t free, int64_t reserved) {
  free = std::max<int64_t>(free - reserved, 0);
  const int64_t regions = int64_t{2} * (thread_num_ - 1);
  const bool device = config_.mem_mode == kMemDevdax || config_.mem_mode == kMemPhysical;
  if (config_.mem_mode == kMemNuma && config_.no_memnode) {
    const int64_t ram = machine_memory();
    const int64_t most = std::min(ram, UsableInGroups());
    if (config_.mem_size > (most - reserved) / regions) {
      const char* whose = most < ram
                              ? "what may be used within the memory limit of its control group, "
                              : "the machine's memory of ";
      Fatal() << "Memory size is larger than " << whose << most / kMiB << " MiB: " << regions
              << " regions of " << config_.mem_size / kMiB << " MiB\n";
    }
  }
  buf_size_ = config_.mem_size;
  if (!config_.no_memnode && buf_size_ > free / regions) {
    Warn() << "Total memory is larger than free space.\n";
    buf_size_ = -1;
  }
  if (buf_size_ == -1) {
    Info() << "Calculate memory buffer size to measure bandwidth ... \n";
    buf_size_ = device ? kDeviceRegion : free / regions / kBufferGrain * kBufferGrain;
  }
  EnsurePass(mixes, device ? std::numeric_limits<int64_t>::max() : free);
  WarnIfLowered("The size of each of " + std::to_string(regions) + " regions", config_.mem_size,
                buf_size_);
  buf_size_ -= buf_size_ % kLineBytes;  // regions begin and end with a line
}

// A region that holds less than a pass would be overrun.
void LoadBench::EnsurePass(const std::vector<Mix>& mixes, int64_t free) {
  const int64_t regions = int64_t{2} * (thread_num_ - 1);
  const auto smaller = [this](const Mix& a, const Mix& b) {
    return pass_size(a, config_.full) < pass_size(b, config_.full);
  };
  const Mix& largest = *std::max_element(mixes.begin(), mixes.end(), smaller);
  const int64_t needed = pass_size(largest, config_.full);
  if (buf_size_ >= needed) return;

  const int64_t raised = (needed + kBufferGrain - 1) / kBufferGrain * kBufferGrain;
  if (raised > free / regions) {
    Fatal() << "Not enough free memory for the ratio " << largest.read << ":" << largest.write
            << ", which needs " << raised / kMiB << " MiB for each of " << regions
            << " regions. Free: " << free / kMiB
            << " MiB. Choose smaller shares, fewer threads (-j) or a size (-m)\n";
  }
  Warn() << "Memory size of " << buf_size_ << " Byte does not hold one pass of the load, raised to "
         << raised << " Byte (" << raised / kMiB << " MiB)\n";
  buf_size_ = raised;
}

void LoadBench::WarnOfDelay(const LoadPlan& plan) const {
  if (config_.bw_delay <= 0) return;
  const double delays = 1e3 * kTurnsPerMs / config_.bw_delay;  // a second
  if (delays >= kFewDelays) return;
  // The generic loop has one a pass.
  const double step =
      static_cast<double>(plan.pass_bytes) / (plan.kernel != nullptr ? kBlocksPerPass : 1);
  Warn() << "A delay of " << config_.bw_delay << " turns leaves each load thread about "
         << std::lround(delays * step) << " Byte a second in fewer than " << kFewDelays
         << " steps, too coarse for MB/s to tell. Choose a smaller one with -D\n";
}

void LoadBench::WarnOfLoad(const std::vector<Mix>& mixes, bool delayed) {
  static bool told = false;
  WarnOfDelay(LoadPlan(mixes.front(), config_.full, kBlocksPerPass));
  int64_t touched = std::numeric_limits<int64_t>::max();
  for (const Mix& mix : mixes) {
    const LoadPlan plan(mix, config_.full, kBlocksPerPass);
    const int64_t regions = (plan.read_step > 0 ? 1 : 0) + (plan.write_step > 0 ? 1 : 0);
    touched = std::min(touched, regions * buf_size_ * (thread_num_ - 1));
    if (plan.kernel == nullptr && delayed && !std::exchange(told, true)) {
      Warn() << "The ratio " << mix.read << ":" << mix.write << " has no kernel of its own: the "
             << "delay comes once in " << kBlocksPerPass << " units of it, not after every "
             << kBlockLines * kLineBytes << " bytes, and lowers the load far less than that of a "
             << "mix with one\n";
    }
  }
  // A size that was given may be a few bytes more than whole lines.
  const bool given = config_.mem_size != -1 && config_.mem_size - buf_size_ < kLineBytes;
  WarnIfCached("The load", touched, LoadCpus(),
               given || IsFixedLimit() ? kLargerSize : LimitAdvice());
}

void LoadBench::AllocBuffers(int64_t first_offset) {
  const int64_t size = 2 * buf_size_;
  bufs_.resize(thread_num_ - 1);
  run_pinned(LoadCpus(), [&](size_t i) {
    bufs_[i] = AllocMem(size, -1, first_offset + static_cast<int64_t>(i) * size);
  });
}

std::vector<LoadRegions> LoadBench::Regions() const {
  std::vector<LoadRegions> regions;
  for (const Buffer& buf : bufs_) regions.push_back({buf.data(), buf_size_});
  return regions;
}

Mix LoadBench::ConfiguredMix() const {
  return {config_.read, config_.write, config_.stream ? 1 : 0};
}

LoadSpec LoadBench::Load(const Mix& mix) const {
  return {.mix = mix,
          .full = config_.full,
          .delay = static_cast<uint32_t>(config_.bw_delay),
          .stride = config_.stride};
}

LoadSetup LoadBench::Setup() const {
  return {.config = config_,
          .target = node_idx_,
          .nodes = bw_numa_str_,
          .cpus = bw_cpus_str_,
          .main_cpu = bw_cpus_.front(),
          .threads = thread_num_ - 1,
          .region = buf_size_};
}

}  // namespace velmo
