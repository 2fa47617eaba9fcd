// In what two sides differ besides their figures: the machine, and the settings of the cells.

#pragma once

#include <string>
#include <vector>

#include "compare/matching.h"

namespace velmo {

struct Difference {
  std::string what;      // "kernel.release", "memory_modules[DIMM_A1].speed_mt_s"
  std::string old_text;  // "none" where it is not there; several values with " / "
  std::string new_text;
  std::string kind;  // of the cells whose setting it is; empty: of the machine
  int cells = 0;     // in how many cells the setting differs so
};

// Settings first, then velmo, the host and the machine. What changes while a machine does nothing,
// as its free memory, is left out.
std::vector<Difference> find_differences(const Side& old_side, const Side& new_side,
                                         const std::vector<CellPair>& pairs);

}  // namespace velmo
