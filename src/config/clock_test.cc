// Clock calibration: can the monotonic clock time a memory access, what does reading it cost, and
// how fast does the time-stamp counter run.

#include <algorithm>
#include <ctime>

#include "app/console.h"
#include "app/progress.h"
#include "app/threads.h"
#include "app/tsc.h"
#include "config/configurator.h"

namespace velmo {
namespace {

// Mean time between two clock reads in a row over `count` pairs, in ns.
double read_clock_pairs(int count) {
  double total = 0.0;
  for (int i = 0; i < count; ++i) {
    timespec first;
    timespec second;
    clock_gettime(CLOCK_MONOTONIC, &first);
    clock_gettime(CLOCK_MONOTONIC, &second);
    total += static_cast<double>(second.tv_sec - first.tv_sec) * 1e9 +
             static_cast<double>(second.tv_nsec - first.tv_nsec);
  }
  return total / count;
}

}  // namespace

void Configurator::ClockTest() {
  timespec resolution;
  if (clock_getres(CLOCK_MONOTONIC, &resolution) != 0 || resolution.tv_sec > 0 ||
      resolution.tv_nsec > 1) {
    Fatal() << "Clock resolution is not enough to measure latency\n";
  }
  if (numa_info.cpu_list.empty()) {
    Fatal() << "No CPU is known: failed to read " << numa_info.node_online_path
            << ". Check that sysfs is mounted and the kernel has NUMA support (CONFIG_NUMA=y)\n";
  }
  const auto usable = std::ranges::find_if(
      numa_info.cpu_list,
      [this](const NumaInfo::cpu_ctx& candidate) { return numa_info.IsUsable(candidate.cpu_id); });
  const int cpu = usable != numa_info.cpu_list.end() ? usable->cpu_id : 0;
  // Two loops of two readings a pair, at the rate of a short one. Shown from before this thread is
  // pinned, while it still has other CPUs to hand on.
  constexpr int kProbe = 1000;
  const double loop_time = 2e-9 * read_clock_pairs(kProbe) * clock_test_count;
  const Progress progress(
      {.label = "Calibrating the clock", .left = 2 * loop_time, .measuring = {cpu}});
  set_cpu_affinity(cpu);

  read_clock_pairs(clock_test_count);  // warm-up
  clock_overhead = read_clock_pairs(clock_test_count);
  if (clock_overhead >= clock_overhead_limit) Fatal() << "clock is not work\n";

  tsc_freq = counter_rate();
}

}  // namespace velmo
