#include "platform/thread_counters.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <ctime>

#include "app/clock.h"
#include "platform/text_file.h"

namespace velmo {
namespace {

constexpr double kSecondsPerNs = 1e-9;

// The number in the 1-based `column` of `text`, whose columns a blank separates; -1: none.
double column_of(std::string_view text, int column) {
  for (; column > 1; --column) {
    const size_t blank = text.find(' ');
    if (blank == std::string_view::npos) return -1;
    text.remove_prefix(blank + 1);
  }
  int64_t value = -1;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return static_cast<double>(value);
}

// Whether `path` could be read into `buffer`; else `reason` says why not.
bool read_file(const std::string& path, std::string& buffer, std::string& reason) {
  if (read_text(path, buffer)) return true;
  reason = path + ": " + std::strerror(errno);
  return false;
}

}  // namespace

bool read_thread_clocks(int tid, double& wall_seconds, double& cpu_seconds) {
  // The CPU clock of a thread: the complement of its number, and the bits "thread" (4) and "time
  // that the scheduler gave it" (2), as pthread_getcpuclockid makes it of a pthread_t.
  const auto clock = static_cast<clockid_t>((~static_cast<uint32_t>(tid) << 3) | 6);
  timespec cpu{};
  wall_seconds = static_cast<double>(monotonic_ns()) * kSecondsPerNs;
  if (clock_gettime(clock, &cpu) != 0) return false;
  cpu_seconds = static_cast<double>(cpu.tv_sec) + static_cast<double>(cpu.tv_nsec) * kSecondsPerNs;
  return true;
}

ThreadProbe::ThreadProbe(int tid, const std::string& root, Clocks clocks)
    : tid_(tid), clocks_(clocks) {
  const std::string folder = root + "/proc/self/task/" + std::to_string(tid) + '/';
  stat_ = folder + "stat";
  schedstat_ = folder + "schedstat";
  sched_ = folder + "sched";
  status_ = folder + "status";
}

ThreadCounters ThreadProbe::Read(std::string& buffer) const {
  ThreadCounters counters;
  if (!clocks_(tid_, counters.wall_seconds, counters.cpu_seconds.value)) {
    counters.cpu_seconds.reason = std::string("CPU clock of the thread: ") + std::strerror(errno);
  }
  ReadStat(buffer, counters);
  ReadSchedstat(buffer, counters);
  ReadSched(buffer, counters);
  return counters;
}

// proc(5); the second column, the thread's name in parentheses, may hold blanks.
void ThreadProbe::ReadStat(std::string& buffer, ThreadCounters& counters) const {
  std::string reason;
  if (read_file(stat_, buffer, reason)) {
    const std::string_view text = buffer;
    const size_t name = std::min(text.rfind(") "), text.size());
    const std::string_view behind = text.substr(std::min(name + 2, text.size()));
    counters.minor_faults.value = column_of(behind, 10 - 2);
    counters.major_faults.value = column_of(behind, 12 - 2);
    if (counters.major_faults.value < 0) reason = stat_ + " has no faults";
  }
  counters.minor_faults.reason = counters.major_faults.reason = reason;
}

// "ran waited slices", the first two in ns.
void ThreadProbe::ReadSchedstat(std::string& buffer, ThreadCounters& counters) const {
  std::string& reason = counters.waited_seconds.reason;
  if (!read_file(schedstat_, buffer, reason)) return;
  counters.waited_seconds.value = column_of(buffer, 2) * kSecondsPerNs;
  if (counters.waited_seconds.value < 0) reason = schedstat_ + " has no time waited";
}

// Kernels without CONFIG_SCHED_DEBUG have no such file; proc(5) has two of its counters, too.
void ThreadProbe::ReadSched(std::string& buffer, ThreadCounters& counters) const {
  const struct {
    const char* key;
    const char* in_status;
    Reading* reading;
  } keys[] = {
      {"nr_involuntary_switches", "nonvoluntary_ctxt_switches", &counters.involuntary_switches},
      {"nr_voluntary_switches", "voluntary_ctxt_switches", &counters.voluntary_switches},
      {"se.nr_migrations", nullptr, &counters.migrations}};
  std::string reason;
  read_file(sched_, buffer, reason);
  bool missing = false;
  for (const auto& [key, in_status, reading] : keys) {
    const std::optional<int64_t> value = reason.empty() ? number_after(buffer, key) : std::nullopt;
    reading->value = static_cast<double>(value.value_or(0));
    if (!value) reading->reason = reason.empty() ? sched_ + " has no " + key : reason;
    missing = missing || !value;
  }
  std::string ignored;
  if (!missing || !read_file(status_, buffer, ignored)) return;
  for (const auto& [key, in_status, reading] : keys) {
    if (reading->known() || in_status == nullptr) continue;
    if (const std::optional<int64_t> value = number_after(buffer, in_status)) {
      *reading = {static_cast<double>(*value)};
    }
  }
}

}  // namespace velmo
