#include "platform/cpu_time.h"

#include <algorithm>
#include <charconv>

namespace velmo {

// A line is "cpu<N>" and the columns user, nice, system, idle, iowait, irq, softirq and steal
// (proc(5)); guests' time, behind them, is part of user's.
std::map<int, CpuTime> parse_cpu_times(std::string_view text) {
  constexpr size_t kColumns = 8;
  constexpr int64_t kMost = int64_t{1} << 59;  // damaged text may say more; all together fit
  std::map<int, CpuTime> times;
  // The CPUs stand first, one after the other.
  while (text.starts_with("cpu")) {
    const size_t length = std::min(text.find('\n'), text.size());
    const char* at = text.data() + 3;
    const char* end = text.data() + length;
    text.remove_prefix(std::min(length + 1, text.size()));
    int cpu = -1;
    at = std::from_chars(at, end, cpu).ptr;
    if (cpu < 0) continue;  // the line of all CPUs
    int64_t ticks[kColumns] = {};
    for (int64_t& column : ticks) {
      while (at != end && *at == ' ') ++at;
      at = std::from_chars(at, end, column).ptr;
      column = std::clamp<int64_t>(column, 0, kMost);
    }
    CpuTime& time = times[cpu];
    for (const int64_t column : ticks) time.total += column;
    time.busy = time.total - ticks[3] - ticks[4];
    time.interrupts = ticks[5] + ticks[6];
    time.stolen = ticks[7];
  }
  return times;
}

}  // namespace velmo
