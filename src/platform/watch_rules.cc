#include "platform/watch_rules.h"

#include <algorithm>
#include <cmath>

namespace velmo {
namespace {

Reading percent(const WatchRecord& record, const Reading& seconds, int cpus = 1) {
  // Ticks may add up to more than the stretch.
  return {std::min(100 * seconds.value / (record.seconds * cpus), 100.0), seconds.reason};
}

struct Rule {
  const char* name;
  const char* unit;
  double limit;
  // Of shares and rates, what a stretch of one second cannot tell from nothing: shorter ones by as
  // much less. The limit of a stretch is the larger of the two.
  double grain;
  Reading (*value)(const WatchRecord& record);
  bool of_others = false;  // an average over the other CPUs: the grain is that of them all together
};

constexpr char kClock[] = "clock";
constexpr double kClockLimit = 3;  // %
// Of a clock that is known at the ends of a stretch alone, %.
constexpr double kClockLimitAtEnds = 10;

constexpr Rule kRules[] = {
    {"stolen_time", "%", 0.5, 0, [](const WatchRecord& r) { return percent(r, r.stolen_seconds); }},
    {"involuntary_switches", "1/s", 100, 5,
     [](const WatchRecord& r) {
       return Reading{r.involuntary_switches.value / r.seconds, r.involuntary_switches.reason};
     }},
    {"migration", "", 0, 0, [](const WatchRecord& r) { return r.migrations; }},
    {"faults", "", 8, 0,
     [](const WatchRecord& r) { return sum_of(r.minor_faults, r.major_faults); }},
    {"paused", "%", 1, 0, [](const WatchRecord& r) { return percent(r, r.paused_seconds); }},
    {"throttled_clock", "", 0, 0, [](const WatchRecord& r) { return r.throttle_count; }},
    {"other_work", "%", 1, 0.05,
     [](const WatchRecord& r) { return percent(r, r.other_work_seconds); }},
    {"busy_cpus", "%", 5, 2,
     [](const WatchRecord& r) {
       return percent(r, r.other_cpus_busy_seconds, std::max(r.other_cpus, 1));
     },
     true},
    {"busy_cpus", "% of a CPU", 50, 2,
     [](const WatchRecord& r) { return percent(r, r.busiest_cpu_seconds); }},
    {"quota", "", 0, 0, [](const WatchRecord& r) { return r.throttled_periods; }},
    {"memory_pressure", "%", 1, 0,
     [](const WatchRecord& r) { return percent(r, r.memory_pressure_seconds); }},
};

constexpr struct {
  std::string_view rule;
  std::string_view text;
} kAdvice[] = {
    {"stolen_time", "the host took time from the CPU: measure on a quieter host"},
    {"involuntary_switches", "other work took the CPU: stop it, or measure on isolated CPUs"},
    {"migration",
     "a thread was moved to another CPU: leave affinities and cpusets alone meanwhile"},
    {"faults",
     "pages of the measurement were taken away or moved: free memory, switch automatic "
     "NUMA balancing off"},
    {"paused", "the measurement was stopped for a while: send it no SIGSTOP, suspend no machine"},
    {"throttled_clock", "the processor throttled itself for its heat: look after its cooling"},
    {kClock, "the clock rate moved: set the frequency governor to performance"},
    {"other_work", "interrupts or other work took the CPU: stop it, or measure on isolated CPUs"},
    {"busy_cpus", "other CPUs were busy and shared caches and memory: stop what runs there"},
    {"quota", "the CPU quota of the container or control group was used up: measure without one"},
    {"memory_pressure", "tasks waited for memory: free some, or measure a smaller buffer"},
};

}  // namespace

std::vector<BrokenRule> broken_rules(const WatchRecord& record,
                                     const std::optional<ClockReference>& first) {
  std::vector<BrokenRule> broken;
  if (!(record.seconds > 0)) return broken;
  for (const Rule& rule : kRules) {
    const Reading value = rule.value(record);
    const int cpus = rule.of_others ? std::max(record.other_cpus, 1) : 1;
    const double limit = std::max(rule.limit, rule.grain / (record.seconds * cpus));
    const bool again = !broken.empty() && broken.back().rule == rule.name;
    if (value.known() && value.value > limit && !again) {
      broken.push_back({rule.name, value.value, limit, rule.unit});
    }
  }
  if (first && record.clock.known() && first->unit == record.clock_unit && first->clock > 0) {
    const double off = 100 * std::abs(record.clock.value / first->clock - 1);
    const double limit = record.clock_unit == kHertz ? kClockLimitAtEnds : kClockLimit;
    if (off > limit) broken.push_back({kClock, off, limit, "%"});
  }
  return broken;
}

std::string_view rule_advice(std::string_view rule) {
  for (const auto& advice : kAdvice) {
    if (advice.rule == rule) return advice.text;
  }
  return {};
}

}  // namespace velmo
