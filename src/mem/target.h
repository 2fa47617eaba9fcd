// What is measured: one memory of the machine.

#pragma once

#include <cstdint>
#include <string>

namespace velmo {

enum class MemoryKind {
  kNuma,      // anonymous memory, on a NUMA node or unbound
  kDevdax,    // device-DAX character device, or the file in its place
  kPmem,      // file in a directory of a (persistent-memory) file system
  kPhysical,  // physical range through /dev/mem
};

struct MemoryTarget {
  MemoryKind kind = MemoryKind::kNuma;
  int node = -1;          // of kNuma; -1: pages follow the policy of the thread that touches them
  std::string path = {};  // of kDevdax the device, of kPmem the directory
  int64_t base = 0;       // of kPhysical: address of its first byte
};

// Bytes of memory that the machine has.
int64_t machine_memory();

// Bytes that are free on the node, or on the file system of the directory, of `target`; -1 where
// nobody tells: memory without a node, devices, a directory that cannot be asked.
int64_t free_bytes(const MemoryTarget& target);

// Bytes that the device-DAX device, or the file in its place, `path` holds; -1 when nothing tells.
int64_t devdax_size(const std::string& path);

}  // namespace velmo
