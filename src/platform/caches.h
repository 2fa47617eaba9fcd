// The caches of the machine's CPUs, from sysfs.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace velmo {

// One cache of the machine.
struct Cache {
  int level;              // from 1, nearest to the CPU
  std::string type;       // "Data", "Instruction" or "Unified"
  int64_t size_bytes;     // above 0
  std::vector<int> cpus;  // that share it, rising
};

class Caches {
 public:
  // Fills `list` with the caches of `cpus`. What cannot be read is left out: an offline CPU has no
  // caches there, nor have those of some virtual machines.
  void Read(const std::vector<int>& cpus);

  // Bytes of the last-level caches of `cpus` together: of each CPU the data cache of the highest
  // level, one that several share once. 0: not known.
  int64_t LastLevelBytes(const std::vector<int>& cpus) const;

  std::vector<Cache> list;  // each once, in the order of the first CPU and the index that name it

  // Folder of a cache; the first "%d" is the CPU, the second the index, counted from 0 without
  // gaps.
  std::string folder_fmt = "/sys/devices/system/cpu/cpu%d/cache/index%d";
};

}  // namespace velmo
