#include "loaded/loaded_latency.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <map>

#include "app/console.h"
#include "support/subprocess.h"

namespace velmo {
namespace {

using Delays = std::vector<unsigned int>;
using Curve = std::map<unsigned int, double>;  // values by the delay from which they hold

// A machine that follows two curves; its second memory target has half the bandwidth of the first.
struct Scripted : LoadedLatency {
  using LoadedLatency::LoadedLatency;
  using LoadedLatency::Sweep;
  Result MeasurePoint(unsigned int delay) override {
    asked_.push_back(delay);
    const double bandwidth = std::prev(bandwidth_.upper_bound(delay))->second;
    const double latency = std::prev(latency_.upper_bound(delay))->second;
    return {1. * delay, bandwidth / (node_idx_ + 1), latency, 11, 12, 13, 0};
  }
  Curve bandwidth_, latency_;
  Delays asked_;
};

// `head`, then a sweep that goes on at `delay` and meets no large change any more: from `step` on,
// every step is twice the one before, up to 16384. Then `added`.
Delays Quiet(const Delays& added = {}, Delays head = {0}, unsigned delay = 4, unsigned step = 8) {
  for (; delay < 200'000; delay += step, step = std::min(2 * step, 16384U)) head.push_back(delay);
  head.insert(head.end(), added.begin(), added.end());
  return head;
}

TEST(LoadedLatency, ChoosesDelays) {
  const Curve flat = {{0, 1000}};
  const Curve cliff = {{0, 1000}, {100, 20}};
  const Curve two_cliffs = {{0, 1000}, {70, 700}, {110, 400}};
  const std::tuple<Curve, Curve, Delays> cases[] = {
      {{{0, 1000}, {4, 50}, {8, 49}}, flat, Delays{0, 4, 8}},  // 5 % goes on
      {two_cliffs, flat,
       Quiet({}, {0, 4, 12, 28, 60, 124, 92, 76, 68, 72, 70, 108, 116, 112, 110}, 188, 128)},
      {{{0, 1000}, {28, 850}}, flat, Quiet({}, {0, 4, 12, 28, 20}, 44, 32)},
      {{{0, 1000}, {28, 851}}, flat, Quiet()},  // less than 15 %
      {flat, {{0, 1000}, {80, 701}, {100, 100}}, Quiet({92, 108, 100})},
      {flat, {{0, 1000}, {100, 500}}, Quiet()},  // half
      {flat, {{0, 1000}, {70, 300}, {80, 500}, {100, 100}}, Quiet({92, 76, 68})},
      {flat, {{0, 1000}, {20, 300}, {100, 50}}, Quiet({20, 16, 92})},  // a find ends searches
      {cliff, {{0, 1000}, {100, 100}}, Delays{0, 4, 12, 28, 60, 124, 92, 108, 100, 96, 98}},
  };
  for (const auto& [bandwidth, latency, expected] : cases) {
    Scripted machine{Configurator()};
    machine.bandwidth_ = bandwidth;
    machine.latency_ = latency;
    machine.config_.verbose = 0;
    testing::internal::CaptureStdout();
    machine.Sweep();
    machine.PrintResult();
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(machine.asked_, expected);
    EXPECT_TRUE(std::ranges::is_sorted(machine.results_, {}, &LoadedLatency::Result::delay));
  }
}

TEST(LoadedLatency, PrintsAndLogsPointsOfEveryTarget) {
  cpu_set_t cpus;
  sched_getaffinity(0, sizeof cpus, &cpus);
  if (!CPU_ISSET(0, &cpus) || !CPU_ISSET(1, &cpus)) GTEST_SKIP() << "needs CPUs 0 and 1";
  const velmo_test::TempDir dir;
  const auto outcome = velmo_test::RunForked([&dir] {
    std::filesystem::current_path(dir.path());
    (std::cout << std::fixed).precision(2);
    Scripted machine{Configurator()};
    machine.bandwidth_ = {{0, 1000}, {4, 20}};
    machine.latency_ = {{0, 100.4}};
    machine.free_ratio_ = 17. * (1 << 20) / std::filesystem::space(dir.path()).available;
    machine.config_.mem_mode = kMemPmem;
    machine.config_.path = dir.path();
    machine.config_.num_targets = 2;
    machine.config_.latency_cpu = {1, 1, 0, 5};
    machine.config_.load_cpu = {{1, 0, 0, 3}, {1, 1, 0, 5}, {1, 0, 0, 3}};
    machine.config_.read = machine.config_.write = 1;
    machine.config_.full = machine.config_.stream = true;
    machine.Run();
  });
  const std::string header =
      "memory size (for latency)  : 4.00 MiB\nmemory size (for bandwidth): 6.00 MiB/thread\n"
      "chunk size : 16 Byte\nstride size: 64 Byte\nlatency thread cpu-numa_id: 5\n"
      "latency thread cpu_id : 1\nBW threads cpu-numa_id: 3\nBW threads cpu_id: 0\n"
      "main thread cpu_id: 0\nmem_path: " +
      dir.path() +
      "\nthe number of BW threads: 1\n\nRead Ratio: 1 Write Ratio: 1\nUsing non-temporal write\n";
  std::string out = "Note that one cpu core will be used to measure latency\n";
  std::map<std::string, std::string> expected, logs;
  for (const std::string target : {"0", "1"}) {
    using Point = std::array<std::string, 3>;  // delay, bandwidth, its share
    std::string measured, finals;
    for (const auto& [delay, bandwidth, share] :
         {Point{"0", target == "0" ? "1000.00" : "500.00", "100.00"},
          Point{"4", target == "0" ? "20.00" : "10.00", "2.00"}}) {
      const std::string head = "Delay: " + delay + "\n  Avg. Bandwidth: " + bandwidth + " MB/s";
      measured += head + "\n  Avg. Latency  : 100.40 ns\n";
      finals += head + " (" + share +
                " %) \nLatency: \n    Avg.  : 100 ns\n    Median: 11 ns\n    99th  : 12 ns\n"
                "    99.9th: 13 ns\n";
    }
    out += kSeparator + ("Memory #" + target) + " Result\n" + kInfoPrefix +
           "Calculate memory buffer size to measure bandwidth ... \n" + header + measured +
           "\nFinal Results\n" + finals;
    expected["mem" + target + "_loaded-lat_result_1r1wn_2"] =
        "Loaded-Latency\nUsing Full Instruction\n" + header + "\nResults\n" + finals;
  }
  EXPECT_EQ(outcome, (velmo_test::Outcome{0, out, ""}));
  for (const auto& file : std::filesystem::directory_iterator(dir.path())) {
    logs[file.path().filename().string().substr(0, 30)] = velmo_test::ReadAll(file.path());
  }
  EXPECT_EQ(logs, expected);
}

}  // namespace
}  // namespace velmo
