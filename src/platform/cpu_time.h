// How the CPUs spent their time since the machine was booted.

#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace velmo {

// Seconds of a tick of the kernel's accounting (USER_HZ, 100 on x86). Differences of CpuTime are
// uncertain by one.
inline constexpr double kTickSeconds = 0.01;

// Ticks of one CPU.
struct CpuTime {
  int64_t busy = 0;        // neither idle nor waiting for a device; time stolen counts
  int64_t interrupts = 0;  // of busy
  int64_t stolen = 0;      // of busy: the CPU had work, and the host ran something else
  int64_t total = 0;
};

// The CPUs named in `text`, the contents of /proc/stat.
std::map<int, CpuTime> parse_cpu_times(std::string_view text);

}  // namespace velmo
