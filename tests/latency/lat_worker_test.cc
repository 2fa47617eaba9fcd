#include "latency/lat_worker.h"

#include <gtest/gtest.h>

#include <numeric>

#include "latency/chase.h"
#include "latency/lat_run.h"
#include "support/subprocess.h"

namespace velmo {
namespace {

alignas(64) char memory[64 * 1024];

using Bins = std::vector<std::pair<int, int64_t>>;  // cycles and samples

struct TestWorker : LatWorker {
  TestWorker() : LatWorker(Configurator()) {
    (std::cout << std::fixed).precision(2);
    config_.mem_size = 4096;
    config_.delay = 700;
    config_.latency_cpu = {1, sched_getcpu(), 0, 2};
    config_.output = dir.path() + "/out_";
    min_loads_ = 1000;
    target_loads_ = 0;
    burst_len_ = 10;
    SetMem(memory);
  }
  int64_t Samples() const { return std::accumulate(hist_.begin(), hist_.end(), int64_t{0}); }
  // What Summary prints of these samples.
  std::string Summarize(double freq, double base, const Bins& bins, int verbose) {
    config_.tsc_freq = freq;
    base_avg_ = base;
    verbose_ = verbose;
    for (const auto& [cycles, samples] : bins) hist_[cycles] = samples;
    testing::internal::CaptureStdout();
    Summary();
    return testing::internal::GetCapturedStdout();
  }
  velmo_test::TempDir dir;
};

TEST(Chase, TakesAllStepsAndCountsASampleForEach) {
  TestWorker w;
  w.InitParameter(kSequential, 0, -1, false);
  for (const uint64_t steps : {0, 1, 100}) {
    const void* end = memory + steps % 64 * 64;
    EXPECT_EQ(Chase(memory, steps), end);
    EXPECT_EQ(ChaseDelayed(memory, steps, 100), end);
    EXPECT_EQ(Sample(memory, steps, w.hist_.data()), end);
    EXPECT_EQ(SampleDelayed(memory, steps, 2'000'000, w.hist_.data()), end);
  }
  EXPECT_EQ(w.Samples(), 2 * 101);
  EXPECT_GE(w.hist_.back(), 101) << "2 ms are more cycles than the histogram tells apart";
}

TEST(Measurement, SamplesAllLapsButOneAndAveragesThePlainPass) {
  // Delayed, under load, chunk, laps (0 stays 0), least samples, samples.
  const std::tuple<bool, bool, int, uint32_t, double, int64_t> cases[] = {
      {false, false, 1, 4, 0, 192},    {true, false, 2, 11, 640, 640}, {false, true, 2, 9, 0, 62},
      {false, false, 2, 10, 640, 640}, {true, false, 4, 1, 0, 0},      {false, false, 4, 0, 3e7, 0},
      {false, false, 3, 4, 0, 0},      {true, false, 3, 4, 0, 0},
  };
  for (const auto& [delayed, under_load, chunk, laps, target_loads, samples] : cases) {
    SCOPED_TRACE(testing::Message() << delayed << under_load << ' ' << chunk << ' ' << laps);
    TestWorker w;
    w.laps_ = laps;
    w.target_loads_ = target_loads;
    w.config_.tsc_freq = 1e9;
    w.config_.chunk = chunk;
    testing::internal::CaptureStdout();
    for (int run = 0; run < 2; ++run) {
      w.InitParameter(kRandom, 7, 2, under_load);
      LatThread thread(w, delayed ? &LatWorker::Delayed : &LatWorker::Burst);
      if (chunk != 3) thread.Release();  // else it must not wait
      thread.Join();
      EXPECT_EQ(w.Samples(), samples);
    }
    const auto printed = [text = testing::internal::GetCapturedStdout()](const char* label) {
      const size_t at = text.rfind(label);
      return at == std::string::npos ? 0 : std::stod(text.substr(text.find(':', at) + 1));
    };
    EXPECT_EQ(w.delay_ns_ != 0, delayed && chunk != 3);
    EXPECT_NEAR(w.avg_, printed("none QoS dt") / w.loads_ - printed("real delay"), 0.01);
  }
}

TEST(Summary, TakesPercentilesFromTheHistogramAndShiftsThemToTheAverage) {
  using Percentiles = std::vector<uint32_t>;  // 0.1th, 1st, median, 99th, 99.9th
  const std::tuple<double, double, Bins, double, Percentiles> cases[] = {
      {3e9, 333, {{1000, 10}}, 1. / 3, {333, 333, 332, 332, 332}},  // cut off, not rounded
      {1e9, 96.3, {{100, 990}, {200, 9}, {5000, 1}}, 9.5, {100, 100, 90, 190, 4990}},
      {1e9, 20, {{10, 1}, {20, 9}, {30, 990}}, 9.89, {20, 30, 20, 20, 20}},
      {4e9, 10.5, {{2, 198}, {400, 2}}, -9.005, {1, 1, 10, 109, 109}},        // below 1 ns
      {1e9, 20, {{10, 99}, {100'000, 1}}, 989.9, {10, 10, 0, 99010, 99010}},  // shifted below 0
      {1e9, 7, {{1'000'000, 4}}, 999'993, {1'000'000, 1'000'000, 7, 7, 7}},   // last entry
      {1e9, 15.5, {{10, 1L << 32}, {20, 5}}, -5.5, {0, 0, 5, 5, 5}},          // 32-bit count
      {1e9, 42, {}, 0, {0, 0, 0, 0, 0}},
  };
  for (const auto& [freq, base, bins, overhead, percentiles] : cases) {
    TestWorker w;
    EXPECT_EQ(w.Summarize(freq, base, bins, -1), "");
    EXPECT_EQ((Percentiles{w.p0_1_, w.p1_, w.median_, w.p99_, w.p99_9_}), percentiles);
    EXPECT_EQ(w.avg_, base);
    EXPECT_NEAR(w.overhead_, overhead, 1e-6);
  }
}

TEST(Summary, IsPrintedAndLoggedWithTheHistogram) {
  TestWorker w;
  w.title_ = "Title";
  w.access_ = kRandom;
  w.config_.mem_mode = kMemPhysical;
  w.config_.base_addr = {0x1fc0000000};
  w.config_.latency_cpu.cpu_id = 17;
  w.config_.bw_delay = 0;
  const std::string results =
      "\nSample: 1000\nAvg.  : 200000.00 ns\nMedian: 253598 ns\n99th  : 553598 ns\n"
      "99.9th: 953597 ns\n";
  const Bins bins = {{10, 200}, {300'000, 780}, {600'000, 19}, {999'999, 1}};
  EXPECT_TRUE(w.Summarize(1e9, 2e5, bins, 2).ends_with("overhead: 46402.00\n" + results));
  EXPECT_TRUE(w.log_name_.starts_with(w.dir.path() + "/out_delay0_2")) << w.log_name_;
  const std::string log = velmo_test::ReadAll(w.log_name_);
  const std::string head =
      "Title (Random)\n\ndelay      : 0\nmemory size: 0.00390625 MiB\nchunk size : 16 Byte\n"
      "stride size: 64 Byte\ncpu-numa_id: 2\ncpu-id     : 17\n"
      "latency base addr  : 0x1fc0000000\n";
  EXPECT_TRUE(log.starts_with(head + results + "=====")) << log.substr(0, 500);
  EXPECT_NE(log.find("\n\nLatency Histogram [ns]\n< 0: 200\n1: 0\n"), std::string::npos);
  EXPECT_TRUE(log.ends_with("\n499999: 0\n>= 500000: 20\n"));
}

}  // namespace
}  // namespace velmo
