#include "survey/plan.h"

#include <numa.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <tuple>

#include "app/console.h"
#include "app/text.h"
#include "platform/text_file.h"
#include "survey/awake_cpus.h"
#include "survey/buffer_sizes.h"
#include "survey/plan_depth.h"
#include "survey/plan_time.h"
#include "survey/usable_memory.h"

namespace velmo {
namespace {

// The staircase of the caches.
constexpr int64_t kSmallest = int64_t{16} * 1024;
constexpr int64_t kLargest = int64_t{1} << 30;
constexpr int64_t kPage = 4096;

std::vector<int> cpu_numbers(const std::vector<NumaInfo::cpu_ctx>& cpus) {
  std::vector<int> numbers;
  for (const auto& cpu : cpus) numbers.push_back(cpu.cpu_id);
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

constexpr const char* kLargePages = "large_pages";  // a scope

bool contains(const auto& list, const auto& value) {
  return std::ranges::find(list, value) != list.end();
}

class Planner {
 public:
  Planner(const SurveyOptions& options, const Topology& machine)
      : options_(options),
        machine_(machine),
        depth_(depth_plan(options)),
        sizes_(options, machine) {
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

  // Gives the cell its buffers, with what its parameters say of them, and adds it.
  void Finish(CellPlan plan) {
    Json& parameters = plan.cell.parameters;
    if (plan.latency_cpu >= 0) {
      plan.setup_cpus = cpu_numbers(CpusOf(*plan.cell.from.cpu_node));
      plan.cell.from.cpus = std::to_string(plan.latency_cpu);
      parameters["pattern"] = "random";
      parameters["stride_bytes"] = kChainStride;
      parameters["cpu"] = plan.latency_cpu;
    }
    if (plan.cell.kind == kBandwidth || plan.cell.kind == kLoadedLatency) {
      const std::string cpus = vector_to_str_range(load_cpus(plan), 0);
      if (plan.cell.from.cpus.empty()) plan.cell.from.cpus = cpus;
      parameters["mix"] = mix_text(plan.mix);
      parameters["threads"] = plan.load.size();
      parameters["load_cpus"] = cpus;
    }
    if (plan.cell.state != kFailed) sizes_.Set(plan);
    if (plan.chain_bytes > 0) parameters["buffer_bytes"] = plan.chain_bytes;
    if (plan.region_bytes > 0) parameters["region_bytes"] = plan.region_bytes;
    plan.seconds = repeat_seconds(plan);
    plan_.push_back(std::move(plan));
  }

  void AddIdle(int from, const MemoryTarget& memory, const char* scope, PageSize pages) {
    CellPlan plan = NewCell(kIdleLatency, from, memory, Common(scope, pages));
    plan.pages = pages;
    plan.latency_cpu = measuring_cpu(CpusOf(from)).cpu_id;
    Finish(std::move(plan));
  }

  void PlanIdle() {
    for (const int node : memory_nodes_) {
      for (const int from : cpu_nodes_) AddIdle(from, {.node = node}, "node", options_.pages);
      const PageSize large = LargePages(node);
      const bool other = options_.pages == PageSize::k4K && large != PageSize::k4K;
      if (other) AddIdle(NearestTo(node), {.node = node}, kLargePages, large);
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

  // Pages of 2 MiB, as they can be had on `node`: the kernel's transparent ones, or those of its
  // pool; else base pages.
  static PageSize LargePages(int node) {
    std::string modes;
    const bool known = read_first_line("/sys/kernel/mm/transparent_hugepage/enabled", modes);
    if (known && modes.find("[never]") == std::string::npos) return PageSize::kThp;
    const bool in_pool = usable_bytes({.node = node}, PageSize::k2M).value_or(0) > 0;
    return in_pool ? PageSize::k2M : PageSize::k4K;
  }

  void PlanSizes() {
    if (cpu_nodes_.empty() || memory_nodes_.empty()) return;
    const int from = cpu_nodes_.front();
    const MemoryTarget memory{.node = Nearest(from, memory_nodes_)};
    const int cpu = measuring_cpu(CpusOf(from)).cpu_id;
    const auto cache = static_cast<double>(sizes_.LastLevel({cpu}));
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
      Finish(std::move(plan));
    }
  }

  // The usable CPU of `node` that does not load and shares no core with one that does, which would
  // be slowed down by it; -1: there is none.
  int SpareCpu(int node, const std::vector<LoadSeat>& load) const {
    const Cpus& cpus = CpusOf(node);
    const auto loads = [&](const auto& cpu) {
      return std::ranges::any_of(load, [&](const LoadSeat& s) { return s.cpu == cpu.cpu_id; });
    };
    const auto spare = std::ranges::find_if(cpus, [&](const auto& cpu) {
      return std::ranges::none_of(
          cpus, [&](const auto& other) { return loads(other) && same_core(cpu, other); });
    });
    return spare == cpus.end() ? -1 : spare->cpu_id;
  }

  // Load from all CPUs of `node` but one, which samples: one whose core has no other, where there
  // is such a one. A load that was less by a whole core would be less than the node can do.
  void SeatLoad(CellPlan& plan, int node) {
    const Cpus& cpus = CpusOf(node);
    const auto alone = std::ranges::find_if(cpus, [&](const auto& cpu) {
      return std::ranges::none_of(cpus, [&](const auto& other) {
        return other.cpu_id != cpu.cpu_id && same_core(cpu, other);
      });
    });
    const std::vector<int> numbers = cpu_numbers(cpus);
    if (cpus.size() > 1) plan.sampling_cpu = alone == cpus.end() ? numbers[0] : alone->cpu_id;
    for (const int cpu : numbers) {
      if (cpu != plan.sampling_cpu) plan.load.push_back({cpu, plan.memory});
    }
  }

  void AddBandwidth(int from, int node, const Mix& mix) {
    CellPlan plan = NewCell(kBandwidth, from, {.node = node}, Common("node", options_.pages));
    plan.mix = mix;
    SeatLoad(plan, from);
    Finish(std::move(plan));
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
      one.load = {{measuring_cpu(CpusOf(nearest)).cpu_id, one.memory}};
      one.sampling_cpu = SpareCpu(nearest, one.load);
      Finish(std::move(one));
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
    if (!plan.load.empty()) Finish(std::move(plan));
  }

  void AddLoaded(int node, const Mix& mix) {
    const int from = NearestTo(node);
    const auto& measuring = measuring_cpu(CpusOf(from));
    CellPlan plan = NewCell(kLoadedLatency, from, {.node = node}, Common("node", options_.pages));
    plan.mix = mix;
    plan.points = depth_.points;
    plan.most_repeats = depth_.few_repeats;
    plan.latency_cpu = measuring.cpu_id;
    Cpus others = CpusOf(from);
    std::erase_if(others, [&](const auto& cpu) { return cpu.cpu_id == measuring.cpu_id; });
    Cpus other_cores = others;
    std::erase_if(other_cores, [&](const auto& cpu) { return same_core(cpu, measuring); });
    if (!other_cores.empty()) others = other_cores;
    for (const int cpu : cpu_numbers(others)) plan.load.push_back({cpu, plan.memory});
    if (plan.load.empty()) {
      fail_cell(plan, "Node " + std::to_string(from) + " has no other CPU to be used for the load");
    }
    Finish(std::move(plan));
  }

  // One memory of each kind stands for its like, unless every one is asked for.
  void PlanLoaded() {
    std::map<std::tuple<bool, int64_t, int>, int> of_kind;
    for (const int node : memory_nodes_) {
      constexpr int64_t kSizeStep = int64_t{8} << 30;
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
  BufferSizes sizes_;
  std::vector<int> cpu_nodes_;
  std::vector<int> memory_nodes_;
  bool whole_machine_;  // all nodes with CPUs and memory are measured
  std::vector<CellPlan> plan_;
};

}  // namespace

std::vector<CellPlan> plan_cells(const SurveyOptions& options, const Topology& machine) {
  return Planner(options, machine).Plan();
}

bool lacks_large_pages(const SurveyOptions& options, const std::vector<CellPlan>& plan) {
  return options.kinds.contains(kIdleLatency) && options.pages == PageSize::k4K &&
         std::ranges::none_of(plan, [](const CellPlan& cell) {
           return parameter_text(cell.cell, "scope") == kLargePages;
         });
}

}  // namespace velmo
