// Measuring without telling: one latency, one mix and one loaded point, in this process.

#include <gtest/gtest.h>
#include <sched.h>

#include <filesystem>

#include "bandwidth/measure_bandwidth.h"
#include "latency/summarize.h"
#include "loaded/measure_point.h"
#include "mem/buffer.h"
#include "support/subprocess.h"

namespace velmo {
namespace {

constexpr int64_t kSize = 8 << 20;
constexpr double kTicks = 1e9;  // a second; ns are cycles then

TEST(Measuring, HandsItsResultsBackAndTellsNobody) {
  const velmo_test::TempDir dir;
  const int cpu = sched_getcpu();
  const auto outcome = velmo_test::RunForked([&] {
    std::filesystem::current_path(dir.path());
    const Buffer chain({}, kSize, {.cpu = cpu});
    const Buffer load({}, 2 * kSize, {.cpu = cpu, .pages = PageSize::kThp});

    const LatencySpec chase{.stride = 256, .warm_up = 10, .loads = 1000, .samples = 2000};
    lay_chain(chain.data(), chain.size(), chase.stride, chase.pattern);
    const LatencyResult latency = Summarize(MeasureLatency(chain.data(), chase), kTicks);

    const std::vector<LoadRegions> regions = {{load.data(), kSize}};
    LoadTeam team({.mix = {2, 1, 1}, .full = true}, {cpu}, regions);
    team.Park();
    const BandwidthResult bandwidth =
        MeasureBandwidth(team, {.intervals = 3, .warm_up = 1, .interval = 0.01});

    LatencySpec loaded = chase;
    loaded.cpu = cpu;
    const LoadedPoint point =
        MeasurePoint(chain.data(), regions,
                     {.latency = loaded, .load_cpus = {cpu}, .ramp_up = {.window = 0.01}}, kTicks);
    if (latency.samples != 2000 || latency.average <= 0 || latency.p99_9 < latency.p99) _exit(2);
    if (bandwidth.seconds.size() != 3 || bandwidth.threads.size() != 1) _exit(3);
    if (std::abs(bandwidth.threads[0] / bandwidth.average - 1) > 1e-9) _exit(4);
    if (point.bandwidth < 63e3 / point.latency.average || point.stride != 256) _exit(5);
    if (point.pattern != kRandom || point.latency.samples != 2000) _exit(6);
    // The chase moves a line each load, which counts.
    const LoadedPoint alone = MeasurePoint(
        chain.data(), {}, {.latency = loaded, .ramp_up = {.window = 0, .most = 0}}, kTicks);
    if (std::abs(alone.bandwidth * alone.samples.average - 64e3) > 1e-6) _exit(7);
  });
  EXPECT_EQ(outcome, (velmo_test::Outcome{0, "", ""}));
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

}  // namespace
}  // namespace velmo
