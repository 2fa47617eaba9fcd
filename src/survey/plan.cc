#include "survey/plan.h"

#include <numa.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>
#include <tuple>

#include "app/console.h"
#include "app/text.h"
#include "platform/dax.h"
#include "platform/text_file.h"
#include "survey/awake_cpus.h"
#include "survey/plan_depth.h"
#include "survey/usable_memory.h"

namespace velmo {
namespace {

constexpr int64_t kMiB = 1 << 20;
constexpr int64_t kGrain = 2 * kMiB;
// Memory that holds this many times the last-level caches in play is read from memory.
constexpr int64_t kCachesCovered = 4;
// Where no cache is known.
constexpr int64_t kUnknownCache = 64 * kMiB;
constexpr int64_t kLeastChain = 256 * kMiB;
constexpr int64_t kLeastRegion = 16 * kMiB;
// Set-up of a byte on one CPU, in s, and the number of CPUs beyond which it gets no faster.
constexpr double kSetUpSeconds = 0.5e-9;
constexpr size_t kSetUpCpus = 8;
// The staircase of the caches.
constexpr int64_t kSmallest = int64_t{16} * 1024;
constexpr int64_t kLargest = 1024 * kMiB;
constexpr int64_t kPage = 4096;

int64_t round_up(int64_t value, int64_t unit) { return (value + unit - 1) / unit * unit; }

std::vector<int> cpu_numbers(const std::vector<NumaInfo::cpu_ctx>& cpus) {
  std::vector<int> numbers;
  for (const auto& cpu : cpus) numbers.push_back(cpu.cpu_id);
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

bool contains(const auto& list, const auto& value) {
  return std::ranges::find(list, value) != list.end();
}

class Planner {
 public:
  Planner(const SurveyOptions& options, const Topology& machine)
      : options_(options), machine_(machine), depth_(depth_plan(options)) {
    cpu_nodes_ = Chosen("--cpu-nodes", options.cpu_nodes, NodesWithCpus(), "has CPUs to be used");
    memory_nodes_ = Chosen("--memory-nodes", options.memory_nodes, machine.memory_nodes,
                           "has memory to be used");
    whole_machine_ = std::ranges::all_of(NodesWithCpus(), [&](int node) {
      const bool has_memory = contains(machine.memory_nodes, node);
      return !has_memory || (contains(cpu_nodes_, node) && contains(memory_nodes_, node));
    });
  }

  std::vector<CellPlan> Plan() {
    if (options_.kinds.contains(kIdleLatency)) PlanIdle();
    if (options_.kinds.contains(kLatencyBySize)) PlanSizes();
    if (options_.kinds.contains(kBandwidth)) PlanBandwidth();
    if (options_.kinds.contains(kLoadedLatency)) PlanLoaded();
    for (CellPlan& plan : plan_) plan.awake_cpus = awake_cpus(plan, machine_);
    return std::move(plan_);
  }

 private:
  using Cpus = std::vector<NumaInfo::cpu_ctx>;

  const Cpus& CpusOf(int node) const { return machine_.node_cpus[node]; }

  std::vector<int> NodesWithCpus() const {
    std::vector<int> nodes;
    for (size_t n = 0; n < machine_.node_cpus.size(); ++n) {
      if (!machine_.node_cpus[n].empty()) nodes.push_back(static_cast<int>(n));
    }
    return nodes;
  }

  static std::vector<int> Chosen(const char* option, const std::optional<std::vector<int>>& asked,
                                 const std::vector<int>& there, const char* what) {
    if (!asked) return there;
    for (const int node : *asked) {
      if (contains(there, node)) continue;
      Fatal() << option << ": no node " << node << ' ' << what
              << ". There is: " << vector_to_str_range(there, 0) << '\n';
    }
    std::vector<int> nodes = *asked;
    std::ranges::sort(nodes);
    nodes.erase(std::unique(nodes.begin(), nodes.end()), nodes.end());
    return nodes;
  }

  // The node of `nodes` (not empty) next to `node`: the kernel's distances tell.
  int Nearest(int node, const std::vector<int>& nodes) const {
    return *std::ranges::min_element(nodes, {},
                                     [&](int other) { return machine_.distances[node][other]; });
  }

  // The CPU node next to `memory`, of those that are measured.
  int NearestTo(int memory) const { return Nearest(memory, cpu_nodes_); }

  int64_t LastLevel(const std::vector<int>& cpus) const {
    const int64_t bytes = machine_.caches.LastLevelBytes(cpus);
    return bytes > 0 ? bytes : kUnknownCache;
  }

  static Json Common(const char* scope, PageSize pages) {
    return {{"scope", scope}, {"pages", pages_text(pages)}};
  }

  CellPlan NewCell(const char* kind, int cpu_node, const MemoryTarget& memory, Json parameters) {
    CellPlan plan;
    plan.cell.kind = kind;
    plan.cell.from = {cpu_node, {}};
    if (memory.kind == MemoryKind::kNuma) {
      if (memory.node >= 0) plan.cell.memory.node = memory.node;
    } else if (memory.kind == MemoryKind::kDevdax) {
      plan.cell.memory.device = memory.path;
    } else {
      plan.cell.memory.directory = memory.path;
    }
    plan.cell.parameters = std::move(parameters);
    plan.memory = memory;
    plan.pages = options_.pages;
    plan.most_repeats = depth_.repeats;
    const bool bandwidth = plan.cell.kind == kBandwidth;
    plan.precision = options_.precision.value_or(bandwidth ? 0.02 : 0.01);
    return plan;
  }

  static void Fail(CellPlan& plan, const std::string& why) {
    plan.cell.state = kFailed;
    plan.cell.stopped_by = kFailed;
    plan.cell.message = why;
  }

  static void MarkSmall(CellPlan& plan) { plan.cell.marks = {"small_buffer"}; }

  static std::string Misfit(int64_t bytes, int64_t usable) {
    return std::to_string(bytes / kMiB) + " MiB do not fit: " + std::to_string(usable / kMiB) +
           " MiB may be used";
  }

  // Seconds in which the CPUs of `node` lay a chain of so many bytes, side by side.
  double SetUpSeconds(int node, int64_t bytes) const {
    const auto cpus = static_cast<double>(std::min(CpusOf(node).size(), kSetUpCpus));
    return static_cast<double>(bytes) * kSetUpSeconds / cpus;
  }

  // Gives the cell its chain, as large as the caches of its CPU call for.
  void SizeChain(CellPlan& plan) const {
    const int64_t cache = LastLevel({plan.latency_cpu});
    const int64_t wanted =
        std::max(kLeastChain, kCachesCovered * cache / kLineBytes * kChainStride);
    // A device refuses to map what is no multiple of its alignment.
    const bool device = plan.memory.kind == MemoryKind::kDevdax;
    const int64_t unit = std::max(kGrain, device ? dax_alignment(plan.memory.path) : 0);
    plan.chain_bytes = options_.size.value_or(wanted);
    if (device || !options_.size) plan.chain_bytes = round_up(plan.chain_bytes, unit);
    plan.setup_cpus = cpu_numbers(CpusOf(*plan.cell.from.cpu_node));
    const std::optional<int64_t> usable = usable_bytes(plan.memory, plan.pages);
    const int64_t mapped = round_up(plan.chain_bytes, page_bytes(plan.pages));
    if (usable && *usable < mapped) {
      plan.chain_bytes = *usable / unit * unit;
      if (plan.chain_bytes < options_.size.value_or(kLeastChain / 4)) {
        Fail(plan, "Buffers of " + Misfit(mapped, *usable));
        return;
      }
    }
    if (plan.chain_bytes / kChainStride * kLineBytes < kCachesCovered * cache) MarkSmall(plan);
    plan.cell.parameters["buffer_bytes"] = plan.chain_bytes;
    AddChain(plan);
  }

  static void AddChain(CellPlan& plan) {
    plan.cell.parameters["pattern"] = "random";
    plan.cell.parameters["stride_bytes"] = kChainStride;
    plan.cell.parameters["cpu"] = plan.latency_cpu;
    plan.cell.from.cpus = std::to_string(plan.latency_cpu);
  }

  // Gives the load its regions; the memory besides them that the cell needs is `reserved`.
  void SizeRegions(CellPlan& plan, int64_t reserved) const {
    std::vector<int> cpus;
    for (const LoadSeat& seat : plan.load) cpus.push_back(seat.cpu);
    std::sort(cpus.begin(), cpus.end());
    const LoadPlan load(plan.mix, true, kBlocksPerPass);
    const int64_t touched = (load.read_step > 0 ? 1 : 0) + (load.write_step > 0 ? 1 : 0);
    const int64_t regions = touched * static_cast<int64_t>(plan.load.size());
    const int64_t covered = kCachesCovered * LastLevel(cpus);
    const int64_t total = options_.size.value_or(std::max(covered, kLeastRegion * regions));
    const int64_t pass = std::max(load.read_step, load.write_step);
    plan.region_bytes = round_up(std::max(total / regions, pass), page_bytes(plan.pages));
    plan.cell.parameters["mix"] = mix_text(plan.mix);
    plan.cell.parameters["threads"] = plan.load.size();
    plan.cell.parameters["region_bytes"] = plan.region_bytes;
    plan.cell.parameters["load_cpus"] = vector_to_str_range(cpus, 0);
    if (plan.cell.from.cpus.empty()) plan.cell.from.cpus = vector_to_str_range(cpus, 0);
    // A pool of huge pages sets aside what is mapped, also the region that is not touched.
    const int64_t held = is_pool(plan.pages) ? 2 : touched;
    std::map<int, int64_t> needed = {{plan.load.front().memory.node, reserved}};
    for (const LoadSeat& seat : plan.load) needed[seat.memory.node] += held * plan.region_bytes;
    for (const auto& [node, bytes] : needed) {
      const std::optional<int64_t> usable = usable_bytes({.node = node}, plan.pages);
      if (usable && *usable < bytes) {
        Fail(plan, "Buffers of " + Misfit(bytes, *usable) + " on node " + std::to_string(node));
        return;
      }
    }
    const std::optional<int64_t> left = usable_in_groups();
    const int64_t all = reserved + touched * plan.region_bytes * std::ssize(plan.load);
    if (left && *left < all && !is_pool(plan.pages)) {
      Fail(plan, "Buffers of " + Misfit(all, *left) + " in this control group");
      return;
    }
    if (plan.region_bytes * regions < covered) MarkSmall(plan);
  }

  void AddIdle(int from, const MemoryTarget& memory, const char* scope, PageSize pages) {
    CellPlan plan = NewCell(kIdleLatency, from, memory, Common(scope, pages));
    plan.pages = pages;
    plan.latency_cpu = measuring_cpu(CpusOf(from)).cpu_id;
    SizeChain(plan);
    plan.seconds = 0.35 + SetUpSeconds(from, plan.chain_bytes);
    plan_.push_back(std::move(plan));
  }

  void PlanIdle() {
    const PageSize large = LargePages();
    for (const int node : memory_nodes_) {
      for (const int from : cpu_nodes_) AddIdle(from, {.node = node}, "node", options_.pages);
      const bool other = options_.pages == PageSize::k4K && large != PageSize::k4K;
      if (other) AddIdle(NearestTo(node), {.node = node}, "large_pages", large);
    }
    for (const int from : cpu_nodes_) {
      for (const std::string& path : options_.devices) {
        AddIdle(from, {.kind = MemoryKind::kDevdax, .path = path}, "node", options_.pages);
      }
      for (const std::string& path : options_.directories) {
        AddIdle(from, {.kind = MemoryKind::kPmem, .path = path}, "node", options_.pages);
      }
    }
  }

  // Pages of 2 MiB, as they can be had: from the kernel's transparent ones; else base pages. Pools
  // may be empty on one node and full on another, and a page that is missing ends a process.
  static PageSize LargePages() {
    std::string modes;
    const bool known = read_first_line("/sys/kernel/mm/transparent_hugepage/enabled", modes);
    return known && modes.find("[never]") == std::string::npos ? PageSize::kThp : PageSize::k4K;
  }

  void PlanSizes() {
    if (cpu_nodes_.empty() || memory_nodes_.empty()) return;
    const int from = cpu_nodes_.front();
    const MemoryTarget memory{.node = Nearest(from, memory_nodes_)};
    const int cpu = measuring_cpu(CpusOf(from)).cpu_id;
    const auto cache = static_cast<double>(LastLevel({cpu}));
    // Quarters of a doubling; beyond the caches whole ones.
    for (int quarter = 0;; ++quarter) {
      const double at = kSmallest * std::exp2(quarter / 4.0);
      if (at > kLargest) return;
      if (at > cache && quarter % 4 != 0) continue;
      const int64_t size = std::lround(at / kPage) * kPage;
      CellPlan plan = NewCell(kLatencyBySize, from, memory, Common("node", options_.pages));
      plan.latency_cpu = cpu;
      plan.chain_bytes = size;
      plan.most_repeats = depth_.few_repeats;
      plan.cell.parameters["buffer_bytes"] = size;
      plan.setup_cpus = cpu_numbers(CpusOf(from));
      AddChain(plan);
      const std::optional<int64_t> usable = usable_bytes(memory, plan.pages);
      if (usable && *usable < size) Fail(plan, "Buffers of " + Misfit(size, *usable));
      plan.seconds = 0.02 + static_cast<double>(size) * 0.8e-9;
      plan_.push_back(std::move(plan));
    }
  }

  // Load from `cpus` to `memory`, sampled from the first of them where another is left.
  void SeatLoad(CellPlan& plan, const std::vector<int>& cpus, const MemoryTarget& memory) {
    size_t first = 0;
    if (cpus.size() > 1) plan.sampling_cpu = cpus[first++];
    for (; first < cpus.size(); ++first) plan.load.push_back({cpus[first], memory});
  }

  void AddBandwidth(int from, int node, const Mix& mix) {
    CellPlan plan = NewCell(kBandwidth, from, {.node = node}, Common("node", options_.pages));
    plan.mix = mix;
    SeatLoad(plan, cpu_numbers(CpusOf(from)), plan.memory);
    FinishBandwidth(std::move(plan));
  }

  void FinishBandwidth(CellPlan plan) {
    SizeRegions(plan, 0);
    plan.seconds = 0.3 + static_cast<double>(plan.region_bytes) * 1e-9;
    plan_.push_back(std::move(plan));
  }

  void PlanBandwidth() {
    for (const int node : memory_nodes_) {
      const int nearest = NearestTo(node);
      for (const int from : cpu_nodes_) {
        // The matrix of reads is whole, whatever mixes are asked for.
        if (from != nearest || !contains(depth_.mixes, kReads)) AddBandwidth(from, node, kReads);
      }
      for (const Mix& mix : depth_.mixes) AddBandwidth(nearest, node, mix);

      CellPlan one =
          NewCell(kBandwidth, nearest, {.node = node}, Common("one_thread", options_.pages));
      one.mix = kReads;
      const int cpu = measuring_cpu(CpusOf(nearest)).cpu_id;
      one.load = {{cpu, one.memory}};
      for (const int other : cpu_numbers(CpusOf(nearest))) {
        if (other != cpu && one.sampling_cpu < 0) one.sampling_cpu = other;
      }
      FinishBandwidth(std::move(one));
    }
    AddWholeMachine();
  }

  // Every CPU reads the memory of its own node; those of nodes without memory stay idle.
  void AddWholeMachine() {
    if (!whole_machine_) return;
    CellPlan plan = NewCell(kBandwidth, 0, {}, Common("machine", options_.pages));
    plan.cell.from.cpu_node.reset();
    plan.mix = kReads;
    for (const int node : cpu_nodes_) {
      if (!contains(memory_nodes_, node)) continue;
      for (const int cpu : cpu_numbers(CpusOf(node))) plan.load.push_back({cpu, {.node = node}});
    }
    if (!plan.load.empty()) FinishBandwidth(std::move(plan));
  }

  void AddLoaded(int node, const Mix& mix) {
    const int from = NearestTo(node);
    const auto& measuring = measuring_cpu(CpusOf(from));
    CellPlan plan = NewCell(kLoadedLatency, from, {.node = node}, Common("node", options_.pages));
    plan.mix = mix;
    plan.points = depth_.points;
    plan.most_repeats = depth_.few_repeats;
    plan.latency_cpu = measuring.cpu_id;
    plan.cell.from.cpus = std::to_string(plan.latency_cpu);
    plan.cell.parameters["mix"] = mix_text(mix);
    Cpus others = CpusOf(from);
    std::erase_if(others, [&](const auto& cpu) { return cpu.cpu_id == measuring.cpu_id; });
    Cpus other_cores = others;
    std::erase_if(other_cores, [&](const auto& cpu) { return same_core(cpu, measuring); });
    if (!other_cores.empty()) others = other_cores;
    for (const int cpu : cpu_numbers(others)) plan.load.push_back({cpu, plan.memory});
    if (plan.load.empty()) {
      Fail(plan, "Node " + std::to_string(from) + " has no other CPU to be used for the load");
    } else {
      SizeChain(plan);
      if (plan.cell.state != kFailed) SizeRegions(plan, plan.chain_bytes);
    }
    plan.seconds = 0.5 + plan.points * 0.22 + SetUpSeconds(from, plan.chain_bytes) +
                   static_cast<double>(plan.region_bytes) * kSetUpSeconds;
    plan_.push_back(std::move(plan));
  }

  // One memory of each kind stands for its like, unless every one is asked for.
  void PlanLoaded() {
    std::map<std::tuple<bool, int64_t, int>, int> of_kind;
    for (const int node : memory_nodes_) {
      constexpr int64_t kSizeStep = 8192 * kMiB;
      const auto key = std::make_tuple(
          CpusOf(node).empty(), (numa_node_size64(node, nullptr) + kSizeStep / 2) / kSizeStep,
          machine_.distances[node][NearestTo(node)]);
      if (!of_kind.emplace(key, node).second && !depth_.every_curve) continue;
      for (const Mix& mix : depth_.loaded_mixes) AddLoaded(node, mix);
    }
  }

  const SurveyOptions& options_;
  const Topology& machine_;
  DepthPlan depth_;
  std::vector<int> cpu_nodes_;
  std::vector<int> memory_nodes_;
  bool whole_machine_;  // all nodes with CPUs and memory are measured
  std::vector<CellPlan> plan_;
};

}  // namespace

std::vector<CellPlan> plan_cells(const SurveyOptions& options, const Topology& machine) {
  return Planner(options, machine).Plan();
}

double plan_seconds(const std::vector<CellPlan>& plan) {
  return std::accumulate(plan.begin(), plan.end(), 0.0, [](double sum, const CellPlan& cell) {
    return cell.cell.state == kFailed ? sum : sum + cell.seconds * cell.most_repeats;
  });
}

}  // namespace velmo
