// What may spoil a measurement: settings of the machine, and what else runs on it.

#pragma once

#include <functional>
#include <string>
#include <vector>

namespace velmo {

// What a run will measure, as far as it is known before its targets are prepared.
struct Subjects {
  std::vector<int> cpus;   // CPUs that measure or load, rising
  bool known = false;      // all of them do; else some do, and which is found out later
  bool latency = false;    // latency is measured
  std::vector<int> nodes;  // memory nodes
  bool unbound = false;    // memory that is bound to no node is measured
};

// Files of the kernel, and how to wait between two looks at the CPUs' time. "%d" is a CPU or a
// node.
struct SpoilerSources {
  std::string msr;  // MSR_PATH
  std::string numa_balancing = "/proc/sys/kernel/numa_balancing";
  std::string governor = "/sys/devices/system/cpu/cpu%d/cpufreq/scaling_governor";
  std::string clock_source = "/sys/devices/system/clocksource/clocksource0/current_clocksource";
  std::string huge_pages = "/sys/kernel/mm/transparent_hugepage/enabled";
  std::string node_memory = "/sys/devices/system/node/node%d/meminfo";
  std::string isolated = "/sys/devices/system/cpu/isolated";
  std::string cpu_time = "/proc/stat";
  std::function<void()> wait;  // 200 ms, long enough for twenty ticks of the kernel's accounting

  SpoilerSources();
};

// One line of text for each thing found, with the value that was found and what it does to the
// numbers. Whether a CPU is isolated or busy is told of known CPUs alone. What cannot be read is
// not reported. Takes 200 ms, in which the caller has nothing else run, where they are known.
std::vector<std::string> find_spoilers(const Subjects& subjects,
                                       const SpoilerSources& sources = {});

}  // namespace velmo
