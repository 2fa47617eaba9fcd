// What the kernel counts of one thread of this process.

#pragma once

#include <string>

#include "platform/reading.h"

namespace velmo {

// Seconds and counts since the thread began.
struct ThreadCounters {
  double wall_seconds = 0;  // CLOCK_MONOTONIC at the time of the reading
  Reading cpu_seconds;  // that it ran; without time stolen by the host where the kernel knows it
  Reading
      waited_seconds;  // that it could have run, but its CPU did something else or its quota was up
  Reading minor_faults;
  Reading major_faults;
  Reading involuntary_switches;  // taken off its CPU while it could run
  Reading voluntary_switches;
  Reading migrations;  // to another CPU
};

// The clocks of the thread `tid` of this process, in seconds, 0 being the calling one; false where
// there is no such thread.
bool read_thread_clocks(int tid, double& wall_seconds, double& cpu_seconds);

// Reads the counters of a thread of this process, the calling one or another, from
// /proc/self/task.
class ThreadProbe {
 public:
  using Clocks = bool (*)(int tid, double& wall_seconds, double& cpu_seconds);

  // `root` stands before /proc.
  explicit ThreadProbe(int tid, const std::string& root = {}, Clocks clocks = read_thread_clocks);

  // Takes about 20 us. With a `buffer` that was used before it takes no memory, so that it adds no
  // fault to those of the calling thread.
  ThreadCounters Read(std::string& buffer) const;

 private:
  void ReadStat(std::string& buffer, ThreadCounters& counters) const;
  void ReadSchedstat(std::string& buffer, ThreadCounters& counters) const;
  void ReadSched(std::string& buffer, ThreadCounters& counters) const;

  int tid_;
  Clocks clocks_;
  std::string stat_;
  std::string schedstat_;
  std::string sched_;
  std::string status_;
};

}  // namespace velmo
