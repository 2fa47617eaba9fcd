// Bench is the base of the benchmarks: the configuration of the run, the memory under test, the CPU
// next to it, and the threads that keep the machine awake while a benchmark measures.

#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "app/progress.h"
#include "app/spinners.h"
#include "config/configurator.h"
#include "latency/measure_latency.h"
#include "mem/buffer.h"
#include "platform/caches.h"
#include "platform/disturbances.h"

namespace velmo {

inline constexpr int64_t kBufferGrain = int64_t{2} << 20;    // buffer sizes are multiples of this
inline constexpr int64_t kDefaultBuffer = int64_t{2} << 30;  // where neither user nor memory says
inline constexpr const char* kLargerSize = "Increase the size with -m";  // advice on small ones

// What the usable size of a memory is bounded by.
enum class SizeLimit {
  kFree,     // what is free of it
  kGroups,   // what the control groups of the process leave
  kMachine,  // the machine's memory, for memory without a node
  kUnbound,  // a fixed size, for memory without a node
  kUnknown,  // a fixed size, where nobody tells what is free
  kDevice,   // what the device holds
};

class Bench {
 public:
  explicit Bench(Configurator config);
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;

  // Measures every memory target of the configuration.
  virtual void Run() = 0;

  // The memory target under test.
  MemoryTarget Target() const;

  // A buffer of the current target, first touched on `cpu` (-1: the calling thread's). `offset`
  // counts for a physical range only. A failure ends the program (mem/mapping.h).
  Buffer AllocMem(int64_t size, int cpu, int64_t offset);

  // Shows the wait for AllocMem to zero `bytes`, by any number of threads.
  Progress ShowZeroing(int64_t bytes);

  // Bytes of the current target that a run may use: free_ratio_ of what is free on its node or file
  // system, 4 GiB for memory without a node, 0 for devices. exit(1) when the file system cannot be
  // asked.
  long GetFreeMemSize() const;

  // Sets free_mem_, in multiples of kBufferGrain or what a smaller device holds, and limit_: what
  // GetFreeMemSize says, but no more than free_ratio_ of what the control groups leave and, without
  // a node, of the machine's memory. kDefaultBuffer, or what a device-DAX target holds, where there
  // is no free size. Returns what GetFreeMemSize says within the same bounds. exit(1) where not
  // even that is left.
  long UpdateFreeMem();

  // The CPU to measure the current target from: of its CPU node, not CPU 0 nor a hyper-thread
  // sibling of it where the node has another. An unknown CPU node is found by measuring the latency
  // from every node (printing that it does so), and kept in cpunode_list. exit(1) when no node has
  // a CPU.
  NumaInfo::cpu_ctx GetCPUNode();

  // Keeps `cpu` busy until StopSpinners, or any CPU when it is null.
  void StartSpinner(const NumaInfo::cpu_ctx* cpu);
  void StopSpinners();

  Disturbances disturbances_;  // of the measurements so far, where somebody reads of them
  Configurator config_;
  std::optional<Spinners> spinners_;
  uint32_t node_idx_ = 0;               // memory target under test
  int64_t free_mem_ = 0;                // usable bytes of the target
  SizeLimit limit_ = SizeLimit::kFree;  // why they are no more
  double free_ratio_ = 0.8;             // share of the free memory that is usable
  std::string groups_root_;  // stands before the paths of the control groups (platform/cgroup.h)
  Caches caches_;            // read where they are asked for

 protected:
  ~Bench() = default;

  // Watches measurements into disturbances_, where somebody reads of them. `busy` CPUs work for the
  // benchmark besides the spinning ones.
  StretchObserver WatchStretch(std::vector<int> busy);

  // Stride, chunk and delay of the configuration, measured from `cpu`.
  LatencySpec ChaseSpec(const NumaInfo::cpu_ctx& cpu) const;

  // Says which chain may be measured in `size` bytes with the prefetchers `off` or not: where they
  // stay on, with a message, only a random one, for which the stride is raised to 256 bytes.
  // exit(1) when the buffer does not hold one stride.
  void ChoosePattern(bool off, int64_t size, LatencySpec& spec) const;

  // Warns where the `bytes` of memory that `who` touches on `cpus` are less than four times the
  // last-level caches there: much of what is measured would be the caches. `advice` says what
  // helps.
  void WarnIfCached(const std::string& who, int64_t bytes, std::vector<int> cpus,
                    const std::string& advice = kLargerSize);

  // Warns where `size`, which limit_ bounds, is less than was `wanted` of `what`, in bytes.
  void WarnIfLowered(const std::string& what, int64_t wanted, int64_t size) const;

  // What limit_ means, for whom a size is too small; the second for WarnIfCached.
  std::string LimitReason() const;
  std::string LimitAdvice() const { return "It cannot be larger: " + LimitReason(); }

  // Whether limit_ is a size that this program has chosen, not one that the machine has.
  bool IsFixedLimit() const {
    return limit_ == SizeLimit::kUnbound || limit_ == SizeLimit::kUnknown;
  }

  // free_ratio_ of the bytes that the control groups leave; no limit: the largest number.
  int64_t UsableInGroups() const;

  // exit(1) when `size` bytes do not hold one `stride`.
  static void CheckHoldsStride(int64_t size, int32_t stride);

 private:
  int64_t ShareOf(int64_t bytes) const;
  int FindNearestCpuNode();

  std::vector<int> spinning_cpus_;
  std::atomic<int64_t> zeroed_{0};  // bytes since the last ShowZeroing
};

}  // namespace velmo
