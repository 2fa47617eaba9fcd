#include "survey/buffer_sizes.h"

#include <algorithm>
#include <map>
#include <string>

#include "platform/dax.h"
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
// Where memory is short no buffer is lowered to less than this share of its least size.
constexpr int64_t kLowest = 4;

int64_t round_up(int64_t value, int64_t unit) { return (value + unit - 1) / unit * unit; }

// What the buffers of a cell take of a memory that has a bound.
struct Demand {
  int64_t bytes;
  int64_t usable;
  std::string where;

  double share() const { return static_cast<double>(usable) / static_cast<double>(bytes); }
};

std::string place_of(const MemoryTarget& memory, PageSize pages) {
  if (memory.kind == MemoryKind::kDevdax) return "of " + memory.path;
  if (memory.kind == MemoryKind::kPmem) return "in " + memory.path;
  const std::string node = "node " + std::to_string(memory.node);
  return is_pool(pages) ? "in the pool of huge pages of " + node : "on " + node;
}

std::vector<Demand> demands_of(const CellPlan& plan) {
  const bool pool = is_pool(plan.pages);
  const int64_t chain = round_up(plan.chain_bytes, page_bytes(plan.pages));
  const int64_t touched = regions_touched(plan) * plan.region_bytes;
  // A pool of huge pages sets aside what is mapped, also the region that is not touched.
  const int64_t held = pool ? 2 * plan.region_bytes : touched;
  std::map<int, int64_t> by_node = {{plan.memory.node, chain}};
  for (const LoadSeat& seat : plan.load) by_node[seat.memory.node] += held;
  std::vector<Demand> demands;
  for (const auto& [node, bytes] : by_node) {
    if (bytes == 0) continue;
    const MemoryTarget memory = node < 0 ? plan.memory : MemoryTarget{.node = node};
    const std::optional<int64_t> usable = usable_bytes(memory, plan.pages);
    if (usable) demands.push_back({bytes, *usable, place_of(memory, plan.pages)});
  }
  // Neither the memory of devices nor that of pools counts there.
  if (pool || plan.memory.kind == MemoryKind::kDevdax) return demands;
  const int64_t all = chain + touched * std::ssize(plan.load);
  const std::optional<int64_t> left = usable_in_groups();
  if (left && all > 0) demands.push_back({all, *left, "in this control group"});
  return demands;
}

int64_t lowered(int64_t bytes, double share, int64_t unit) {
  return static_cast<int64_t>(static_cast<double>(bytes) * share) / unit * unit;
}

}  // namespace

std::vector<int> load_cpus(const CellPlan& plan) {
  std::vector<int> cpus;
  for (const LoadSeat& seat : plan.load) cpus.push_back(seat.cpu);
  std::sort(cpus.begin(), cpus.end());
  return cpus;
}

int64_t regions_touched(const CellPlan& plan) {
  const LoadPlan load(plan.mix, true, kBlocksPerPass);
  return (load.read_step > 0 ? 1 : 0) + (load.write_step > 0 ? 1 : 0);
}

void fail_cell(CellPlan& plan, const std::string& why) {
  plan.cell.state = kFailed;
  plan.cell.stopped_by = kFailed;
  plan.cell.message = why;
}

int64_t BufferSizes::LastLevel(const std::vector<int>& cpus) const {
  const int64_t bytes = machine_.caches.LastLevelBytes(cpus);
  return bytes > 0 ? bytes : kUnknownCache;
}

int64_t BufferSizes::WantedChain(const CellPlan& plan, int64_t unit) const {
  const int64_t covering =
      kCachesCovered * LastLevel({plan.latency_cpu}) / kLineBytes * kChainStride;
  const int64_t bytes = options_.size.value_or(std::max(kLeastChain, covering));
  const bool as_asked = options_.size && plan.memory.kind != MemoryKind::kDevdax;
  return as_asked ? bytes : round_up(bytes, unit);
}

int64_t BufferSizes::WantedRegion(const CellPlan& plan, int64_t least) const {
  const int64_t regions = regions_touched(plan) * std::ssize(plan.load);
  const int64_t covering = kCachesCovered * LastLevel(load_cpus(plan));
  const int64_t total = options_.size.value_or(std::max(covering, kLeastRegion * regions));
  return round_up(std::max(total / regions, least), page_bytes(plan.pages));
}

void BufferSizes::Set(CellPlan& plan) const {
  const bool exact = plan.chain_bytes > 0;
  // A device refuses to map what is no multiple of its alignment.
  const bool device = plan.memory.kind == MemoryKind::kDevdax;
  const int64_t page = page_bytes(plan.pages);
  const int64_t unit = std::max(kGrain, device ? dax_alignment(plan.memory.path) : 0);
  if (plan.latency_cpu >= 0 && !exact) plan.chain_bytes = WantedChain(plan, unit);
  const LoadPlan load(plan.mix, true, kBlocksPerPass);
  const int64_t pass = std::max(load.read_step, load.write_step);
  if (!plan.load.empty()) plan.region_bytes = WantedRegion(plan, pass);

  const std::vector<Demand> demands = demands_of(plan);
  const auto tightest = std::ranges::min_element(demands, {}, &Demand::share);
  if (tightest != demands.end() && tightest->share() < 1) {
    const double share = tightest->share();
    const int64_t chain = lowered(round_up(plan.chain_bytes, page), share, std::max(unit, page));
    const int64_t region = lowered(plan.region_bytes, share, page);
    const bool too_little =
        (plan.chain_bytes > 0 && chain < kLeastChain / kLowest) ||
        (plan.region_bytes > 0 && region < std::max(pass, kLeastRegion / kLowest));
    if (exact || options_.size || too_little) {
      fail_cell(plan, "Buffers of " + std::to_string(round_up(tightest->bytes, kMiB) / kMiB) +
                          " MiB do not fit: " + std::to_string(tightest->usable / kMiB) +
                          " MiB may be used " + tightest->where);
      return;
    }
    plan.chain_bytes = chain;
    plan.region_bytes = region;
  }
  if (exact) return;
  const auto covers = [&](int64_t lines_bytes, const std::vector<int>& cpus) {
    return lines_bytes >= kCachesCovered * LastLevel(cpus);
  };
  const int64_t regions = plan.region_bytes * regions_touched(plan) * std::ssize(plan.load);
  if ((plan.chain_bytes > 0 &&
       !covers(plan.chain_bytes / kChainStride * kLineBytes, {plan.latency_cpu})) ||
      (regions > 0 && !covers(regions, load_cpus(plan)))) {
    plan.cell.marks = {"small_buffer"};
  }
}

}  // namespace velmo
