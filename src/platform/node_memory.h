// How much of a node's memory is in use.

#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace velmo {

struct NodeMemory {
  int64_t total_kb;  // above 0
  // Free, or page cache, which gives way to who asks for memory; shared memory, a part of it, does
  // not.
  int64_t available_kb;
};

// From a node's file meminfo in sysfs; none where it cannot be read.
std::optional<NodeMemory> read_node_memory(const std::string& path);

}  // namespace velmo
