// What happens to the machine, and to the threads that measure, while they do.
//
//   Watch watch;
//   watch.Start({.threads = {{gettid(), cpu}}, .nodes = {node}});
//   ... the measured stretch ...
//   const WatchRecord record = watch.Stop();
//
// Both calls read counters of the kernel and nothing else, so what they cost falls into no stretch:
// about 0.1 ms each on two CPUs, and some 25 us for each thread and CPU more.

#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/cpu_counters.h"
#include "platform/cpu_time.h"
#include "platform/machine_counters.h"
#include "platform/reading.h"
#include "platform/thread_counters.h"

namespace velmo {

// A thread of this process that measures or loads: pinned to `cpu`, and at work for the whole
// stretch. One that sleeps meanwhile is not to be watched.
struct WatchedThread {
  int tid;
  int cpu;
};

struct WatchSettings {
  std::vector<WatchedThread> threads;  // begun before Start, not ended before Stop
  std::vector<int> helper_cpus;        // CPUs that are busy on velmo's behalf besides
  std::vector<int> nodes;              // memory nodes
  // Threads that keep other CPUs awake: all but their time there is work of others.
  std::vector<WatchedThread> spinning = {};
};

struct WatchSources {
  std::string root;  // before /proc and /sys
  std::string msr;   // device of a CPU's registers, with "%d" for the CPU; MSR_PATH
  ThreadProbe::Clocks clocks = read_thread_clocks;

  WatchSources();
};

struct WatchedNode {
  int node;
  Reading free_bytes_before;
  Reading free_bytes_after;
};

inline constexpr char kHertz[] = "Hz";

// What happened during one stretch. Where the kernel counts in ticks (kTickSeconds), times of work
// are what is certain, the least that agrees with the ticks.
struct WatchRecord {
  double seconds = 0;  // from Start to Stop

  // Of the watched threads.
  int threads = 0;
  Reading cpu_seconds;           // least of a thread: that it ran
  Reading waited_seconds;        // most of a thread: that it could have run, but was kept from it
  Reading paused_seconds;        // most of a thread: stopped, asleep, or in a fault; not stolen
  Reading involuntary_switches;  // most of a thread
  Reading voluntary_switches;    // of all together, as those that follow
  Reading migrations;
  Reading minor_faults;
  Reading major_faults;

  // Of their CPUs.
  int cpus = 0;
  Reading stolen_seconds;      // most of a CPU: taken by the host
  Reading interrupt_seconds;   // most of a CPU, in whole ticks
  Reading other_work_seconds;  // most of a CPU: interrupts and threads that are not watched
  Reading throttle_count;      // of all together
  Reading clock;               // their average, in units of clock_unit
  std::string clock_unit;      // "base clocks" (APERF to MPERF), or "Hz" (at both ends)

  // Of the machine.
  int other_cpus = 0;               // online, without helper_cpus
  Reading other_cpus_busy_seconds;  // all together, without the spinning threads
  Reading busiest_cpu_seconds;      // the busiest of them
  int busiest_cpu = -1;             // its number
  Reading cpu_pressure_seconds;     // as MachineCounters has them
  Reading memory_pressure_seconds;
  Reading throttled_periods;
  Reading throttled_seconds;
  Reading swapped_in_pages;
  Reading swapped_out_pages;
  Reading migrated_pages;
  std::vector<WatchedNode> nodes;
};

class Watch {
 public:
  // Finds the groups that limit this process.
  explicit Watch(WatchSources from = {});

  // Call it last before the stretch; the calling thread may be a watched one.
  void Start(WatchSettings settings);

  // Call it first behind the stretch. Takes up to 10 ms where threads wait for their CPUs.
  WatchRecord Stop();

 private:
  struct Snapshot {
    double wall_seconds = 0;
    std::vector<ThreadCounters> threads;  // in the order of the settings
    std::map<int, CpuCounters> cpus;      // those of the threads
    std::map<int, CpuTime> times;         // all
    std::map<int, double> spun_seconds;   // by CPU
    std::string times_failure;            // why there are none
    MachineCounters machine;
    std::vector<Reading> free_bytes;
  };

  void AwaitRunning() const;
  void ReadThreads(Snapshot& snapshot);
  void ReadMachine(Snapshot& snapshot) const;
  void CompareThreads(const Snapshot& after, WatchRecord& record) const;
  void CompareCpus(const Snapshot& after, WatchRecord& record) const;
  void CompareClocks(const Snapshot& after, WatchRecord& record) const;
  void CompareOthers(const Snapshot& after, WatchRecord& record) const;
  void CompareMachine(const Snapshot& after, WatchRecord& record) const;

  WatchSources from_;
  std::vector<std::string> cpu_groups_;
  WatchSettings settings_;
  std::vector<ThreadProbe> probes_;
  std::string buffer_;
  Snapshot before_;
};

}  // namespace velmo
