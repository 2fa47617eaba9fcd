// The machine that a survey was made on: what its kernel, its firmware and its processor tell.

#pragma once

#include <string>

#include "platform/cpu_info.h"
#include "survey/record.h"

namespace velmo {

// Where the machine is described.
struct MachineSources {
  std::string root;         // before /proc and /sys
  std::string msr;          // device of a CPU's registers, with "%d" for the CPU; MSR_PATH
  std::string search_path;  // folders of dmidecode: those of PATH, and of the administrator
  CpuInfo::Cpuid (*cpuid)(uint32_t leaf);

  MachineSources();
};

// The member "machine" of a survey. What cannot be read is {"value": null, "reason": "..."};
// nothing that the machine tells, or does not, ends the program. Measures nothing; takes some ms,
// and up to 2 s where dmidecode hangs.
Json describe_machine(const MachineSources& from = {});

}  // namespace velmo
