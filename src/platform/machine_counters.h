// What the kernel counts of the whole machine, and of the groups that limit this process.

#pragma once

#include <string>
#include <vector>

#include "platform/reading.h"

namespace velmo {

// Since the machine was booted, or the group made.
struct MachineCounters {
  Reading cpu_pressure_seconds;     // in which some task waited for a CPU (PSI "some")
  Reading memory_pressure_seconds;  // in which some task waited for memory
  Reading throttled_periods;        // of a CPU quota that was used up
  Reading throttled_seconds;        // that it cost, added up over the CPUs
  Reading swapped_in_pages;
  Reading swapped_out_pages;
  Reading migrated_pages;  // to another place or node, by any process or the kernel
};

// `root` stands before /proc; `cpu_groups` are the folders of the groups whose quotas hold
// (cgroup_folders).
MachineCounters read_machine_counters(const std::string& root,
                                      const std::vector<std::string>& cpu_groups);

// Free bytes of the memory node.
Reading read_free_bytes(int node, const std::string& root);

}  // namespace velmo
