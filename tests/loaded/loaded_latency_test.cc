#include "loaded/loaded_latency.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <map>

#include "loaded/delay_sweep.h"
#include "support/subprocess.h"

namespace velmo {
namespace {

using Delays = std::vector<unsigned int>;
using Curve = std::map<unsigned int, double>;  // values by the delay from which they hold

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
    Delays asked;
    DelaySweep sweep([&, &bandwidth = bandwidth, &latency = latency](unsigned int delay) {
      asked.push_back(delay);
      return SweepPoint{std::prev(bandwidth.upper_bound(delay))->second,
                        std::prev(latency.upper_bound(delay))->second};
    });
    sweep.Run();
    EXPECT_EQ(asked, expected);
  }
}

TEST(LoadedLatency, WarnsOfASmallLatencyBufferWhereTheMemoryIsNotFree) {
  constexpr int64_t kGiB = 1 << 30;
  const std::string what = "The latency buffer, a quarter of what is used, is lowered from ";
  const std::tuple<SizeLimit, int64_t, int64_t, std::string> cases[] = {
      {SizeLimit::kUnbound, 4 * kGiB, kGiB, ""},
      {SizeLimit::kFree, 9 * kGiB, 2 * kGiB, ""},
      {SizeLimit::kFree, 4 * kGiB, kGiB,
       velmo_test::Warning(what + "2048 MiB to 1024 MiB: no more is used than 80 % of what is free "
                                  "of the memory")},
      {SizeLimit::kFree, 8'388'607, 0,
       velmo_test::Error("Not enough free memory for the latency buffer: 8388607 Byte")},
  };
  for (const auto& [limit, free, size, err] : cases) {
    const auto outcome = velmo_test::RunForked([&, limit = limit, free = free] {
      LoadedLatency loaded{Configurator()};
      loaded.limit_ = limit;
      loaded.SizeLatencyBuffer(free);
      std::cout << loaded.lat_size_;
    });
    EXPECT_EQ(outcome.out + outcome.err, (size > 0 ? std::to_string(size) : "") + err);
  }
}

TEST(LoadedLatency, SortsPrintsAndLogsItsPoints) {
  const velmo_test::TempDir dir;
  const auto outcome = velmo_test::RunForked([&dir] {
    std::filesystem::current_path(dir.path());
    (std::cout << std::fixed).precision(2);
    LoadedLatency loaded{Configurator()};
    loaded.config_.path = dir.path();
    loaded.config_.mem_mode = kMemPmem;
    loaded.config_.read = loaded.config_.write = 1;
    loaded.config_.full = loaded.config_.stream = true;
    loaded.bw_cpus_ = {0, 3};
    loaded.config_.use_pa_set = true;
    const LoadSpec first = loaded.PointLoad(9);
    if (first.delay != 9 || first.passes != 0 || !first.flush) _exit(9);
    loaded.results_ = {{4, 20, 100.4, 11, 12, 13, 0}, {0, 1000, 700.6, 21, 22, 23, 0}};
    if (loaded.PointLoad(9).flush) _exit(8);
    loaded.PrintResult();
  });
  const std::string results =
      "Delay: 0\n  Avg. Bandwidth: 1000.00 MB/s (100.00 %) \nLatency: \n    Avg.  : 701 ns\n"
      "    Median: 21 ns\n    99th  : 22 ns\n    99.9th: 23 ns\n"
      "Delay: 4\n  Avg. Bandwidth: 20.00 MB/s (2.00 %) \nLatency: \n    Avg.  : 100 ns\n"
      "    Median: 11 ns\n    99th  : 12 ns\n    99.9th: 13 ns\n";
  EXPECT_EQ(outcome, (velmo_test::Outcome{0, "\nFinal Results\n" + results, ""}));
  const std::filesystem::path log = *std::filesystem::directory_iterator(dir.path());
  EXPECT_TRUE(log.filename().string().starts_with("mem0_loaded-lat_result_1r1wn_2")) << log;
  const std::string text = velmo_test::ReadAll(log);
  EXPECT_TRUE(text.starts_with("Loaded-Latency\nUsing Full Instruction\nmemory size (for latency)"))
      << text;
  EXPECT_TRUE(text.ends_with("mem_path: " + dir.path() +
                             "\nthe number of BW threads: -1\n\nRead Ratio: 1 Write Ratio: 1\n"
                             "Using non-temporal write\n\nResults\n" +
                             results))
      << text;
}

}  // namespace
}  // namespace velmo
