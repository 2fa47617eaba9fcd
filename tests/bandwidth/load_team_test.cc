#include "bandwidth/load_team.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <cstring>
#include <filesystem>
#include <thread>

#include "support/subprocess.h"

namespace velmo {
namespace {

constexpr long kRegion = 4L * 64 * 1024;  // a pass
alignas(64) char memory[2][2 * kRegion];

TEST(LoadTeam, ParksOpensSamplesAndStops) {
  const std::vector<int> cpus(2, sched_getcpu());
  const std::vector<LoadRegions> regions = {{memory[0], kRegion}, {memory[1], kRegion}};
  LoadTeam({}, cpus, regions).Park();  // ends parked
  LoadTeam team({}, cpus, regions);
  LoadTeam stopped({}, cpus, regions);
  LoadTeam analyzer({.passes = 2}, cpus, regions);
  stopped.Park();
  stopped.Stop();
  team.Park();
  EXPECT_EQ(team.Sample(0) + team.Sample(1) + stopped.Sample(0) + stopped.Sample(1), 0);
  team.OpenGate();
  for (const size_t i : {0, 1}) {
    while (team.Sample(i) == 0) std::this_thread::yield();
  }
  team.Stop();
  analyzer.Park();
  analyzer.OpenGate();
  for (const size_t i : {0, 1}) {
    team.Sample(i);
    EXPECT_EQ(team.Sample(i), 0);  // was drained, and nothing moves any more
    EXPECT_GT(analyzer.Join(i), 0);
    const auto mark = static_cast<char>(cpus[i]);
    for (long at = 0; at < 2 * kRegion; at += 64) ASSERT_EQ(memory[i][at], mark) << at;
  }
}

TEST(LoadTeam, MeasuresNothingWhenItsCpuIsTakenAway) {
  if (std::thread::hardware_concurrency() < 2) GTEST_SKIP() << "has no other CPU to move to";
  const int cpu = sched_getcpu();
  const auto outcome = velmo_test::RunForked([cpu] {
    LoadTeam team({}, {cpu}, {{memory[0], kRegion}});
    team.Park();
    team.OpenGate();
    cpu_set_t all;
    std::memset(&all, 0xFF, sizeof all);
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
      sched_setaffinity(std::stoi(task.path().filename()), sizeof all, &all);
    }
    team.Stop();
  });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.err.find("CPU " + std::to_string(cpu) + " was taken away"), std::string::npos)
      << outcome;
}

}  // namespace
}  // namespace velmo
