#include "bandwidth/load_team.h"

#include <gtest/gtest.h>
#include <sched.h>

namespace velmo {
namespace {

constexpr long kRegion = 4L * 64 * 1024;  // a pass
alignas(64) char memory[2][2 * kRegion];

TEST(LoadTeam, ParksOpensSamplesAndStops) {
  const std::vector<int> cpus(2, sched_getcpu());
  const std::vector<void*> bufs = {memory[0], memory[1]};
  Configurator config;
  config.read = 1;
  config.use_pa = 2;
  LoadTeam(config, cpus, bufs, kRegion, false).Park();  // ends parked
  LoadTeam team(config, cpus, bufs, kRegion, false);
  LoadTeam stopped(config, cpus, bufs, kRegion, false);
  LoadTeam analyzer(config, cpus, bufs, kRegion, true);
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

}  // namespace
}  // namespace velmo
