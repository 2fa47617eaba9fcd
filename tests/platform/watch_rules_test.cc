#include "platform/watch_rules.h"

#include <gtest/gtest.h>

namespace velmo {
namespace {

// A quiet repeat of 450 ms on one of two CPUs.
WatchRecord Quiet() {
  WatchRecord record;
  record.seconds = 0.45;
  record.other_cpus = 1;
  record.other_cpus_busy_seconds = record.busiest_cpu_seconds = {0.02};
  record.throttle_count.reason = "no such file";
  record.clock = {1.5};
  record.clock_unit = "base clocks";
  return record;
}

std::string Broken(const WatchRecord& record, const std::optional<ClockReference>& first = {}) {
  std::string names;
  for (const BrokenRule& broken : broken_rules(record, first)) {
    EXPECT_GT(broken.value, broken.limit);
    EXPECT_FALSE(rule_advice(broken.rule).empty()) << broken.rule;
    names += broken.rule + ' ';
  }
  return names;
}

TEST(WatchRules, HoldUpToTheirLimits) {
  EXPECT_EQ(Broken(Quiet()), "");
  const struct {
    const char* rule;
    Reading WatchRecord::*reading;
    double allowed, broken;
  } rows[] = {
      {"stolen_time ", &WatchRecord::stolen_seconds, 0.0022, 0.0024},
      {"involuntary_switches ", &WatchRecord::involuntary_switches, 45, 46},
      {"migration ", &WatchRecord::migrations, 0, 1},
      {"faults ", &WatchRecord::minor_faults, 8, 9},
      {"faults ", &WatchRecord::major_faults, 8, 9},
      {"paused ", &WatchRecord::paused_seconds, 0.0044, 0.0046},
      {"throttled_clock ", &WatchRecord::throttle_count, 0, 1},
      {"other_work ", &WatchRecord::other_work_seconds, 0.0044, 0.0046},
      {"busy_cpus ", &WatchRecord::other_cpus_busy_seconds, 0.02, 0.03},
      {"busy_cpus ", &WatchRecord::busiest_cpu_seconds, 0.22, 0.23},
      {"quota ", &WatchRecord::throttled_periods, 0, 1},
      {"memory_pressure ", &WatchRecord::memory_pressure_seconds, 0.0044, 0.0046},
      {"clock ", &WatchRecord::clock, 1.54, 1.55},
      {"clock ", &WatchRecord::clock, 1.46, 1.45},
  };
  WatchRecord ends = Quiet();
  ends.clock_unit = "Hz";
  for (const auto& [clock, rules] : {std::pair(1.36, ""), {1.34, "clock "}}) {
    ends.clock = {clock};
    EXPECT_EQ(Broken(ends, ClockReference{1.5, "Hz"}), rules);
  }
  const ClockReference first{1.5, "base clocks"};
  for (const auto& row : rows) {
    WatchRecord record = Quiet();
    record.*row.reading = {row.allowed};
    EXPECT_EQ(Broken(record, first), "") << row.rule;
    record.*row.reading = {row.broken};
    EXPECT_EQ(Broken(record, first), row.rule);
    record.*row.reading = {row.broken, "unknown"};
    EXPECT_EQ(Broken(record, first), "") << row.rule;
  }
}

TEST(WatchRules, AllowShortStretchesAnAccident) {
  WatchRecord record = Quiet();
  record.seconds = 0.05;
  record.involuntary_switches = {5};
  EXPECT_EQ(Broken(record), "");
  record.involuntary_switches = {6};
  record.other_cpus = 63;  // two ticks in all, not of each
  record.other_cpus_busy_seconds = {0.17};
  EXPECT_EQ(Broken(record, ClockReference{2000000000, "Hz"}), "involuntary_switches busy_cpus ");
}

}  // namespace
}  // namespace velmo
