#include "latency/lat_worker.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <numeric>

#include "latency/chase.h"
#include "latency/latency_report.h"
#include "latency/latency_thread.h"
#include "support/subprocess.h"

namespace velmo {
namespace {

alignas(64) char memory[64 * 1024];

using Bins = std::vector<std::pair<int, int64_t>>;  // cycles and samples

struct TestWorker : LatWorker {
  explicit TestWorker(const LatencySpec& spec = {.stride = 64}, uint32_t laps = 2)
      : LatWorker(spec, laps) {
    min_loads_ = 1000;
    target_loads_ = 0;
    burst_len_ = 10;
    SetMem(memory, 4096);
  }
};

LatencySamples SamplesOf(double average, const Bins& bins) {
  LatencySamples samples{.average = average};
  samples.histogram.resize(kMaxCycles + 1);
  for (const auto& [cycles, count] : bins) samples.histogram[cycles] = count;
  return samples;
}

int64_t Count(const std::vector<int64_t>& hist) {
  return std::accumulate(hist.begin(), hist.end(), int64_t{0});
}

TEST(LatWorker, SamplesAllLapsButOneAndAveragesThePlainPass) {
  // Delayed, under load, chunk, laps (0 stays 0), least samples, samples.
  const std::tuple<bool, bool, int, uint32_t, double, int64_t> cases[] = {
      {false, false, 1, 4, 0, 192},    {true, false, 2, 11, 640, 640}, {false, true, 2, 9, 0, 62},
      {false, false, 2, 10, 640, 640}, {true, false, 4, 1, 0, 0},      {false, false, 4, 0, 3e7, 0},
      {false, false, 3, 4, 0, 0},      {true, false, 3, 4, 0, 0},
  };
  for (const auto& [delayed, under_load, chunk, laps, target_loads, samples] : cases) {
    SCOPED_TRACE(testing::Message() << delayed << under_load << ' ' << chunk << ' ' << laps);
    TestWorker w({.stride = 64, .chunk = chunk, .delay_ns = 700, .cpu = sched_getcpu()}, laps);
    w.target_loads_ = target_loads;
    for (int run = 0; run < 2; ++run) {
      w.InitParameter(kRandom, under_load);
      LatThread thread(w, delayed ? &LatWorker::Delayed : &LatWorker::Burst);
      if (chunk != 3) thread.Release();  // else it must not wait
      thread.Join();
      EXPECT_EQ(Count(w.samples_.histogram), samples);
    }
    const double plain = static_cast<double>(w.samples_.plain_ns) / w.spec_.loads;
    EXPECT_EQ(w.samples_.real_delay >= 700, delayed && chunk != 3);
    EXPECT_NEAR(w.samples_.average, plain - w.samples_.real_delay, 0.01);
  }
}

TEST(Summarize, TakesPercentilesFromTheHistogramAndShiftsThemToTheAverage) {
  using Percentiles = std::vector<uint32_t>;  // 0.1th, 1st, median, 99th, 99.9th
  const std::tuple<double, double, Bins, double, Percentiles> cases[] = {
      {3e9, 333, {{1000, 10}}, 1. / 3, {333, 333, 332, 332, 332}},  // cut off, not rounded
      {1e9, 96.3, {{100, 990}, {200, 9}, {5000, 1}}, 9.5, {100, 100, 90, 190, 4990}},
      {1e9, 20, {{10, 1}, {20, 9}, {30, 990}}, 9.89, {20, 30, 20, 20, 20}},
      {4e9, 10.5, {{2, 198}, {400, 2}}, -9.005, {1, 1, 10, 109, 109}},        // below 1 ns
      {1e9, 20, {{10, 99}, {100'000, 1}}, 989.9, {10, 10, 0, 99010, 99010}},  // shifted below 0
      {1e9, 7, {{1'000'000, 4}}, 999'993, {1'000'000, 1'000'000, 7, 7, 7}},   // last entry
      {1e9, 15.5, {{10, 1L << 32}, {20, 5}}, -5.5, {10, 10, 15, 15, 15}},     // 64-bit count
      {1e9, 42, {}, 0, {0, 0, 0, 0, 0}},
  };
  for (const auto& [freq, base, bins, overhead, percentiles] : cases) {
    const LatencyResult r = Summarize(SamplesOf(base, bins), freq);
    EXPECT_EQ((Percentiles{r.p0_1, r.p1, r.median, r.p99, r.p99_9}), percentiles);
    EXPECT_EQ(r.average, base);
    EXPECT_NEAR(r.overhead, overhead, 1e-6);
  }
}

TEST(LatencyReport, IsPrintedAndLoggedWithTheHistogram) {
  const velmo_test::TempDir dir;
  (std::cout << std::fixed).precision(2);
  Configurator config;
  config.output = dir.path() + "/out_";
  config.mem_mode = kMemPhysical;
  config.base_addr = {0x1fc0000000};
  config.bw_delay = 0;
  config.verbose = 2;
  config.tsc_freq = 1e9;
  const LatencySpec spec{.pattern = kRandom, .stride = 64};
  const LatencySamples samples =
      SamplesOf(2e5, {{10, 200}, {300'000, 780}, {600'000, 19}, {999'999, 1}});
  const LatencyResult result = Summarize(samples, config.tsc_freq);
  testing::internal::CaptureStdout();
  ReportLatency({config, 0, {1, 17, 0, 2}, 4096, spec, false, samples, result});
  const std::string results =
      "\nSample: 1000\nAvg.  : 200000.00 ns\nMedian: 253598 ns\n99th  : 553598 ns\n"
      "99.9th: 953597 ns\n";
  EXPECT_TRUE(testing::internal::GetCapturedStdout().ends_with("overhead: 46402.00\n" + results));
  const std::string name = std::filesystem::directory_iterator(dir.path())->path();
  EXPECT_TRUE(name.starts_with(dir.path() + "/out_delay0_2")) << name;
  const std::string log = velmo_test::ReadAll(name);
  const std::string head =
      "Burst Latency (Random)\n\ndelay      : 0\nmemory size: 0.00390625 MiB\n"
      "chunk size : 16 Byte\nstride size: 64 Byte\ncpu-numa_id: 2\ncpu-id     : 17\n"
      "latency base addr  : 0x1fc0000000\n";
  EXPECT_TRUE(log.starts_with(head + results + "=====")) << log.substr(0, 500);
  EXPECT_NE(log.find("\n\nLatency Histogram [ns]\n< 0: 200\n1: 0\n"), std::string::npos);
  EXPECT_TRUE(log.ends_with("\n499999: 0\n>= 500000: 20\n"));
}

}  // namespace
}  // namespace velmo
