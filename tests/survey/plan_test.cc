#include "survey/plan.h"

#include <gtest/gtest.h>

#include <set>

#include "support/subprocess.h"
#include "survey/loaded_delays.h"
#include "survey/plan_time.h"
#include "survey/usable_memory.h"

namespace velmo {
namespace {

using velmo_test::Error;
using velmo_test::RunForked;

// The first node; none of them is there, so that nothing is known of their memory.
constexpr int kFirst = 900;
constexpr int kCpuNodes = 8;
constexpr int kCpusOfNode = 32;

// 8 nodes of 32 CPUs, two of a core next to each other, and two without, next to the first and the
// last; of `sharing` CPUs each a last-level cache of so many bytes.
Topology large_machine(int64_t cache_bytes, int sharing) {
  Topology machine;
  machine.spinning = true;
  machine.node_cpus.resize(kFirst + kCpuNodes + 2);
  machine.distances.assign(machine.node_cpus.size(),
                           std::vector<int>(machine.node_cpus.size(), 21));
  for (int n = 0; n < kCpuNodes + 2; ++n) {
    const int node = kFirst + n;
    machine.memory_nodes.push_back(node);
    machine.distances[node][node] = 10;
    for (int cpu = n * kCpusOfNode; n < kCpuNodes && cpu < (n + 1) * kCpusOfNode; ++cpu) {
      machine.node_cpus[node].push_back({1, cpu, cpu / 2, node});
      if (cpu % sharing == 0) machine.caches.list.push_back({3, "Unified", cache_bytes, {}});
      machine.caches.list.back().cpus.push_back(cpu);
    }
  }
  machine.distances[kFirst + 8][kFirst] = 14;
  machine.distances[kFirst + 9][kFirst + 7] = 17;
  return machine;
}

SurveyOptions all_kinds() {
  SurveyOptions options;
  options.kinds = {kIdleLatency, kLatencyBySize, kBandwidth, kLoadedLatency};
  return options;
}

auto count(const std::vector<CellPlan>& plan, const char* kind, const std::string& scope = "node") {
  return std::ranges::count_if(plan, [&](const CellPlan& p) {
    return p.cell.kind == kind && parameter_text(p.cell, "scope") == scope;
  });
}

TEST(SurveyPlan, ALargeMachineTakesLessThanAQuarterOfAnHour) {
  const std::pair<int64_t, int> caches[] = {{32, 8}, {105, kCpusOfNode}};
  for (const auto& [mebibytes, sharing] : caches) {
    SCOPED_TRACE(mebibytes);
    const Topology machine = large_machine(mebibytes << 20, sharing);
    SurveyOptions options = all_kinds();
    const std::vector<CellPlan> plan = plan_cells(options, machine);
    EXPECT_LT(plan_seconds(plan), 15 * 60);
    EXPECT_EQ(count(plan, kIdleLatency), 80);
    EXPECT_EQ(count(plan, kBandwidth), 80 + 10 * 6);
    EXPECT_EQ(count(plan, kBandwidth, "one_thread"), 10);
    EXPECT_EQ(count(plan, kBandwidth, "machine"), 1);
    EXPECT_EQ(count(plan, kLoadedLatency), 3 * 3);  // kinds of memory, mixes
    EXPECT_GE(count(plan, kLatencyBySize), 4 * 11);
    std::set<std::string> keys;
    for (const CellPlan& p : plan) {
      EXPECT_TRUE(keys.insert(cell_key(p.cell)).second) << cell_key(p.cell);
      EXPECT_TRUE(p.cell.marks.empty());
      EXPECT_EQ(p.awake_cpus.size(), p.load.empty() ? 8U : p.cell.from.cpu_node ? 7U : 0U);
      EXPECT_EQ(std::ranges::count(p.awake_cpus, p.latency_cpu), 0);
      if (parameter_text(p.cell, "scope") == "one_thread") {
        EXPECT_NE(p.sampling_cpu / 2, p.load.front().cpu / 2);
      }
      if (p.cell.kind == kIdleLatency) {
        EXPECT_GE(p.chain_bytes / 256 * 64, 4 * (mebibytes << 20));
      }
    }
    options.depth = Depth::kQuick;
    EXPECT_EQ(count(plan_cells(options, machine), kLoadedLatency), 10);
    options.depth = Depth::kThorough;
    EXPECT_EQ(count(plan_cells(options, machine), kLoadedLatency), 10 * 3);
  }
}

TEST(SurveyPlan, WhereMemoryIsShortAllBuffersAreLowered) {
  const int64_t usable = usable_bytes({.node = 0}, PageSize::k4K).value_or(0);
  if (usable < int64_t{1} << 30) GTEST_SKIP() << "too little memory";
  Topology machine{{{{1, 0, 0, 0}, {1, 1, 1, 0}}}, {0}, {{10}}, {}};
  machine.caches.list = {{3, "Unified", usable, {0, 1}}};
  for (const CellPlan& p : plan_cells(all_kinds(), machine)) {
    if (p.cell.kind == kLatencyBySize) continue;
    EXPECT_EQ(p.cell.marks, std::vector<std::string>{"small_buffer"}) << p.cell.message;
    EXPECT_LT(p.chain_bytes + p.region_bytes * std::ssize(p.load), 2 * usable) << cell_key(p.cell);
  }
}

TEST(SurveyPlan, NodesThatAreNamedAreMeasuredAlone) {
  SurveyOptions options = all_kinds();
  options.cpu_nodes = {kFirst + 3, kFirst + 3};
  options.memory_nodes = {kFirst + 4, kFirst + 8};
  options.mixes = {{2, 1, 0}};
  const std::vector<CellPlan> plan = plan_cells(options, large_machine(1 << 20, 1));
  std::set<int> memories;
  for (const CellPlan& p : plan) {
    EXPECT_EQ(p.cell.from.cpu_node, kFirst + 3);
    memories.insert(p.cell.memory.node.value_or(-1));
  }
  EXPECT_EQ(memories, (std::set<int>{kFirst + 4, kFirst + 8}));
  EXPECT_EQ(count(plan, kIdleLatency), 2);
  EXPECT_EQ(count(plan, kBandwidth), 2 * 2);  // reads and the mix
  EXPECT_EQ(count(plan, kBandwidth, "machine"), 0);
}

TEST(SurveyPlan, NodesThatCannotBeUsedAreRefused) {
  SurveyOptions options = all_kinds();
  const auto refusal = [&] {
    return RunForked([&] { plan_cells(options, large_machine(1 << 20, 1)); });
  };
  options.memory_nodes = {kFirst, 3};
  EXPECT_EQ(refusal().err,
            Error("--memory-nodes: no node 3 has memory to be used. There is: 900-909"));
  options.memory_nodes.reset();
  options.cpu_nodes = {kFirst + 8};
  EXPECT_EQ(refusal().err,
            Error("--cpu-nodes: no node 908 has CPUs to be used. There is: 900-907"));
}

// A load that is full up to a delay of 100, and a probe of it that is a fifth too high.
TEST(LoadedDelays, LieWhereTheCurveBendsWhateverOneProbeSays) {
  for (int spoiled = 0, probe = 0; spoiled < 20; ++spoiled, probe = 0) {
    const auto bandwidth_at = [&](int64_t delay) {
      return std::min(1.0, 100.0 / (delay + 1)) * (probe++ == spoiled ? 1.2 : 1);
    };
    const std::vector<int64_t> delays = choose_delays(bandwidth_at, 16);
    EXPECT_TRUE(delays[2] >= 30 && delays[8] <= 250) << spoiled;
  }
}

}  // namespace
}  // namespace velmo
