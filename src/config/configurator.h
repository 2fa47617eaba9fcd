// The one record that carries every setting of a run.
//
// The global instance is filled once, by InputArguments, and never written afterwards. Every
// benchmark works on a full copy of its own; what measures is told no more than it needs.

#pragma once

#include <getopt.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/cpu_info.h"
#include "platform/mem_info.h"
#include "platform/numa_info.h"

namespace velmo {

// Kinds of memory under test, values of Configurator::mem_mode.
inline constexpr int32_t kMemNuma = 1;      // anonymous memory, on a NUMA node or unbound
inline constexpr int32_t kMemDevdax = 2;    // device-DAX character device
inline constexpr int32_t kMemPmem = 3;      // file on a persistent-memory file system
inline constexpr int32_t kMemPhysical = 4;  // physical range through /dev/mem

// Passes that a run makes without -i, and those of them that warm up and are added to a given -i.
inline constexpr int32_t kBandwidthIter = 14;
inline constexpr int32_t kBandwidthWarmUp = 4;
inline constexpr int32_t kLatencyIter = 2;
inline constexpr int32_t kLatencyWarmUp = 1;

class Configurator {
 public:
  // Turns the command line into a complete record: parses the platform, reads and checks the
  // options, derives the targets, calibrates the clock. Help, version and the system report are
  // printed here and end the process with status 0; every error ends it with status 1 after a
  // message. A number that passes is_number but does not convert leaves as the exception of the
  // conversion.
  void InputArguments(int argc, char** argv);

  // The steps of InputArguments.
  void ParseOptions(int argc, char** argv);
  void CheckOptions();  // checks and derivations behind the last option
  void ClockTest();     // fills clock_overhead and tsc_freq

  // Whether `node`, which may be no node (-1), has a CPU that is online and may be used.
  bool HasCpus(int node) const;

  // The CPU to measure latency from on `node`, which has CPUs: not CPU 0 nor a hyper-thread sibling
  // of it where the node has another.
  const NumaInfo::cpu_ctx& MeasuringCpu(int node) const;

  // Error prefix, `message`, general usage page, exit(1).
  [[noreturn]] void RejectWithUsage(const std::string& message) const;

  // The help pages, on standard output. They do not exit.
  void Usage() const;
  void UsageBW() const;
  void UsageBWLocal() const;
  void UsageLat() const;
  void UsageLoadedLat() const;

  int32_t num_targets = 0;         // memory targets to measure
  std::vector<int64_t> base_addr;  // physical start of each target (kMemPhysical)
  int64_t mem_size = -1;           // buffer size in bytes; -1: not given
  std::string output;              // prefix of log names with "_" appended; empty: none
  int32_t iter = 0;                // iterations, with the warm-up after parsing; 0: not given
  int32_t chunk = 2;               // width of the latency chase's final read, in units of 8 bytes
  double clock_overhead = 0.0;     // mean cost of two clock reads in a row, in ns
  std::vector<int32_t> memnode_list;                      // memory node of each target; -1: none
  std::vector<int32_t> cpunode_list;                      // CPU node of each target; -1: not bound
  std::vector<std::vector<NumaInfo::cpu_ctx>> node_cpus;  // usable CPUs of each node
  int32_t cpunode = -1;                                   // -C
  int32_t memnode = -1;                                   // -M
  int32_t verbose = 1;                                    // 1: write log files; 0: do not
  int32_t stride = 64;                                    // chase stride in bytes
  NumaInfo::cpu_ctx latency_cpu{0, -1, 0, 0};             // -k; cpu_id -1: not given
  std::vector<NumaInfo::cpu_ctx> load_cpu;                // -l
  uint64_t use_pa = 500;                                  // passes of the protocol-analyzer mode
  bool run_bandwidth = false;
  bool run_latency = false;
  bool run_loaded_latency = false;
  bool full = false;             // whole lines, not one 16-byte access a line
  bool delayed_latency = false;  // measurements of a latency run
  bool burst_latency = false;
  bool node_spinners = true;    // keep one CPU of every node spinning while measuring
  bool basic_workload = false;  // the fixed list of bandwidth workloads
  bool reserved = false;        // set by no option
  bool devdax = false;
  bool pmem = false;
  bool no_memnode = true;   // no memory target was named
  bool use_pa_set = false;  // protocol-analyzer mode
  int32_t mem_mode = kMemNuma;
  int32_t read = 0;  // shares of the bandwidth mix
  int32_t write = 0;
  bool stream = false;          // non-temporal stores
  int32_t thread = -1;          // threads with the main one; -1: not given
  int32_t delay = 2000;         // of the delayed-latency mode, in ns
  int32_t bandwidth_local = 0;  // 1: load CPUs are bound to a CPU node
  int32_t bw_delay = -1;        // injection delay of the load, in turns; -1: not given
  double tsc_freq = 0.0;        // time-stamp-counter ticks per second
  std::string path;             // of the device or the directory under test
  CpuInfo cpu_info;
  static const std::array<option, 40> long_options;
  MemInfo mem_info;
  NumaInfo numa_info;
  int32_t clock_test_count = 50'000'000;  // clock-read pairs in each loop of the clock test
  double clock_overhead_limit = 1000.0;   // ns; this much and more is fatal

 private:
  // The steps of CheckOptions.
  void CheckCpuOptions() const;
  void CheckLoadedLatencyCpus() const;
  void BindMemoryNode();
  void DeriveBandwidthSettings();
  void DeriveLatencySettings();
  void RoundToDevice();
  void DeriveTargets();
  void FindCpulessNodes();
  void CheckAllowedNodes();

  // The same for the physical mode: the start of a range of `node`, that of every range without
  // CPUs, and whether the range holds what the run will map.
  void BindPhysicalRange(const NumaInfo::numa_list_elem& node);
  void FindCpulessRanges();
  void CheckPhysicalEnd() const;

  // Record of node `node`, or null when the machine has no such node.
  const NumaInfo::numa_list_elem* FindNode(int node) const;
};

}  // namespace velmo
