// What the kernel lets this process use: a container or a batch job has a part of the machine (a
// cpuset), and only that can be pinned to or bound to.

#pragma once

#include <string>
#include <vector>

namespace velmo {

// The CPUs that threads of this process may be pinned to, rising; offline ones are not among them.
// What the process was started on (taskset) is no limit. Found by widening the calling thread to
// all CPUs for a moment. Empty: the kernel does not tell.
std::vector<int> usable_cpus();

// The kernel's files about memory nodes.
struct NodeSources {
  std::string with_memory = "/sys/devices/system/node/has_memory";
  std::string process_status = "/proc/self/status";
};

// The nodes that have memory, rising: those that this process may use, and those that it may not.
struct MemoryNodes {
  std::vector<int> allowed;
  std::vector<int> forbidden;
};

// Both are empty where the kernel does not tell.
MemoryNodes memory_nodes(const NodeSources& sources = {});

}  // namespace velmo
