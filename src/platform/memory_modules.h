// The memory modules of the machine, as its firmware describes them (SMBIOS, type 17).

#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace velmo {

// One module; what the firmware does not tell is empty or 0.
struct MemoryModule {
  std::string locator;                // the slot, as the board names it: "DIMM_A1"
  int64_t size_bytes = 0;             // above 0
  std::string type;                   // "DDR5"
  int64_t speed_mt_s = 0;             // that it is made for, in million transfers a second
  int64_t configured_speed_mt_s = 0;  // at which it runs
};

struct MemoryModules {
  std::vector<MemoryModule> list;  // in the firmware's order, without empty slots
  std::string reason;              // why there are none
};

// Asks dmidecode, where a folder of `search_path` has it; it gets 2 s. Else, and where it tells
// nothing, reads the firmware's table, for which the kernel wants root. `root` stands before /sys.
MemoryModules read_memory_modules(const std::string& search_path, const std::string& root = {});

// The modules in what "dmidecode -t 17" writes.
std::vector<MemoryModule> parse_dmidecode(const std::string& text);

// The modules in the bytes of an SMBIOS structure table. The table is not trusted: one that is cut
// short or damaged gives the modules before the damage.
std::vector<MemoryModule> parse_smbios(const std::string& table);

}  // namespace velmo
