// What throttles the CPUs, and how fast they run.

#pragma once

#include <string>
#include <vector>

#include "platform/reading.h"

namespace velmo {

struct CpuCounters {
  Reading throttle_count;  // how often a core or its package was throttled for its heat, since boot
  // Cycles while not idle, at the clock as it was (APERF) and at the base clock (MPERF).
  Reading actual_cycles;
  Reading base_cycles;
  Reading clock_hz;  // at this time, as the frequency driver tells; where those two are not known
};

// Counters of `cpu`. `root` stands before /sys; `msr` is the device of a CPU's registers, with
// "%d".
CpuCounters read_cpu_counters(int cpu, const std::string& root, const std::string& msr);

}  // namespace velmo
