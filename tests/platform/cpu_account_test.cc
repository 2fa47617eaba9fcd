#include "platform/cpu_account.h"

#include <gtest/gtest.h>

namespace velmo {
namespace {

// Stretches of 450 ms as they were recorded on a guest of two CPUs, or follow from them.
TEST(CpuAccount, TellsWhereTheTimeWent) {
  const struct {
    const char* what;
    double ran, waited;                // seconds
    int64_t busy, interrupts, stolen;  // ticks; those of the host count as busy
    bool host_tells;                   // some time was stolen since the machine was booted
    double expected_stolen, expected_other, expected_paused;
  } rows[] = {
      {"quiet", 0.4499, 0, 45, 0, 0, false, 0, 0.0001, 0},
      {"quiet, a tick too many of each", 0.4500, 0, 47, 1, 1, true, 0, 0, 0},
      {"a compiler on the CPU", 0.1804, 0.2695, 45, 0, 0, true, 0.0001, 0.2695, 0},
      {"the same, waiting is unknown", 0.1804, -1, 45, 0, 0, false, 0, 0.2496, 0},
      {"stopped for 100 ms", 0.1550, 0.1946, 45, 0, 0, true, 0, 0.275, 0.1004},
      {"stopped, nothing else runs", 0.3496, 0, 35, 0, 0, false, 0, 0, 0.1004},
      {"quota of half a CPU", 0.2250, 0.2250, 23, 0, 0, false, 0, 0, 0},
      {"stolen, told of by the thread", 0.4470, 0, 45, 0, 1, true, 0.003, 0, 0},
      {"stolen before the first tick", 0.4470, 0, 45, 0, 0, true, 0.003, 0, 0},
      {"stolen, unknown to the thread", 0.4500, 0, 45, 0, 3, true, 0.02, 0, 0},
      {"stolen and stopped", 0.3300, 0, 35, 0, 2, true, 0.02, 0, 0.1},
      {"interrupts", 0.4100, 0, 45, 4, 0, false, 0, 0.04, 0},
  };
  for (const auto& row : rows) {
    ThreadSpan span{0.45, {row.ran}, {row.waited}};
    if (row.waited < 0) span.waited_seconds = {0, "unknown"};
    const CpuTime before{1000, 10, row.host_tells ? 7 : 0, 5000};
    const CpuTime after{1000 + row.busy, 10 + row.interrupts, before.stolen + row.stolen, 5045};
    const CpuAccount account = account_for({span}, &before, &after);
    EXPECT_NEAR(account.stolen_seconds.value, row.expected_stolen, 1e-9) << row.what;
    EXPECT_NEAR(account.other_work_seconds.value, row.expected_other, 1e-9) << row.what;
    EXPECT_NEAR(account.paused_seconds.value, row.expected_paused, 1e-9) << row.what;
    EXPECT_EQ(account.paused_seconds.known(), row.waited >= 0) << row.what;
  }
  const CpuAccount blind = account_for({{0.45, {0.2}, {0.1}}}, nullptr, nullptr);
  EXPECT_FALSE(blind.stolen_seconds.known());
  EXPECT_NEAR(blind.other_work_seconds.value, 0.1, 1e-9);
  EXPECT_NEAR(blind.paused_seconds.value, 0.15, 1e-9);
  const CpuAccount awake = account_for({{0.45, {0.2}, {0.1}, true}}, nullptr, nullptr);
  EXPECT_NEAR(awake.other_work_seconds.value - awake.paused_seconds.value, 0.25, 1e-9);
}

}  // namespace
}  // namespace velmo
